// Whether the code under test is built with sanitizers.
//
// A function instead of a macro: test code is compiled identically with and without sanitizers, so
// that both builds share the compiler cache.
#pragma once

bool isSanitized();
