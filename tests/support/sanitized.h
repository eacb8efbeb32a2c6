// Whether the product that the tests look at is built with sanitizers.
//
// A function and no macro: test code is compiled alike with and without them, so that a compiler
// cache serves both.
#pragma once

bool isSanitized();
