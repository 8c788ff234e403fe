#pragma once

/// Marks what the shared library exports; everything without it stays hidden.
#define VRX_EXPORT __attribute__((visibility("default")))

/// Takes a member of an exported class out of the exports again: private functions, and constants, whose exported
/// symbols would be unique in the process and keep the library loaded for good.
#define VRX_HIDDEN __attribute__((visibility("hidden")))
