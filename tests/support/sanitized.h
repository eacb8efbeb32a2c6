// How the code under test is built, for tests that take a smaller sample if it is slow.
//
// Functions instead of macros: test code is compiled identically with and without sanitizers, so
// that both builds share the compiler cache.
#pragma once

bool isSanitized();

// Built for another architecture, so that an emulator runs the tests.
bool isEmulated();
