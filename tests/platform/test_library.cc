// A tiny shared library for the dynamic-loading tests.

extern "C" __attribute__((visibility("default"))) int bs_test_answer() { return 42; }
