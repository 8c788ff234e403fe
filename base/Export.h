#pragma once

/// Marks what the shared library exports; everything without it stays hidden.
#define VRX_EXPORT __attribute__((visibility("default")))

/// Takes a private function of an exported class out of the exports again.
#define VRX_HIDDEN __attribute__((visibility("hidden")))
