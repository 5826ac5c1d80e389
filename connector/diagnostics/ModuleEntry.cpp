// The module's entry point where the platform has one. Elsewhere the loader runs static construction and destruction,
// which builds and destroys the logger, and nothing else is needed.
#if defined(_WIN32)

#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
    // The framework keeps nothing per thread: it needn't hear of every thread that comes and goes.
    if (reason == DLL_PROCESS_ATTACH)
        DisableThreadLibraryCalls(module);
    return TRUE;
}

#endif
