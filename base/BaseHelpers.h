#pragma once

/// The whole toolkit: every public header of this folder.
#include "base/File2.h"
#include "base/StringCsv.h"
#include "base/StringEncoding.h"
#include "base/StringFormat.h"
#include "base/StringMacros.h"
#include "base/StringMap.h"
#include "base/StringScramble.h"
#include "base/StringSplit.h"
#include "base/StringText.h"
#include "base/StringVector.h"
#include "base/WaveFile.h"
