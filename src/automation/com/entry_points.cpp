// What the system and regsvr32 call.
#ifdef _WIN32

#include "automation/com/server.h"

extern "C" {

HRESULT WINAPI DllGetClassObject(REFCLSID class_id, REFIID wanted, void** result) {
    return korvane::automation::make_class_factory(class_id, wanted, result);
}

HRESULT WINAPI DllCanUnloadNow() {
    return korvane::automation::module_is_idle() ? S_OK : S_FALSE;
}

HRESULT WINAPI DllRegisterServer() {
    return korvane::automation::register_server();
}

HRESULT WINAPI DllUnregisterServer() {
    return korvane::automation::unregister_server();
}
}

#endif
