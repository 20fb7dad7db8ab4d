#pragma once

/// Marks what the shared library shows to its users; everything else is hidden.
#define VELLOR_API __attribute__((visibility("default")))
