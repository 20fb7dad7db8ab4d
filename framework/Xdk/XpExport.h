#pragma once

/// Marks what libXdk offers to programs that link it; everything else stays hidden in the library.
#define XDK_API __attribute__((visibility("default")))
