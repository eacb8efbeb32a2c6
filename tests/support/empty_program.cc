// An empty program, for which the precompiled headers of the tests are compiled.
int main() { return 0; }
