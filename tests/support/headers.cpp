// tests/support/headers.cpp: a program for the precompiled headers, which the test programs share.
int main() { return 0; }
