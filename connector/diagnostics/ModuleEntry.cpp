// The module's entry point, on the platform that has one. The logger is a static object, so other platforms need
// nothing here.
#if defined(_WIN32)

#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
    // The framework keeps nothing per thread, so it needs no notice of threads that start or end.
    if (reason == DLL_PROCESS_ATTACH)
        DisableThreadLibraryCalls(module);
    return TRUE;
}

#endif
