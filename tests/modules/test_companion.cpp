// A companion module for the tests of loading.
#ifdef _WIN32
#define COMPANION_API extern "C" __declspec(dllexport)
#else
#define COMPANION_API extern "C" __attribute__((visibility("default")))
#endif

COMPANION_API int companion_answer();
COMPANION_API int companion_answer() { return 42; }
