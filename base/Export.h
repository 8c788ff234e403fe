#pragma once

/// Marks what the shared library exports; everything without it stays hidden.
#define VRX_EXPORT __attribute__((visibility("default")))
