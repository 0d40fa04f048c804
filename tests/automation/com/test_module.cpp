// The DLL as the system loads it. The program's first argument names it.
#include <gtest/gtest.h>

#include "argument_values.h"
#include "automation/com/com_basics.h"

namespace korvane::automation {
namespace {

template <class Function>
Function* exported(HMODULE module, const char* name) {
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

/// The server on the base folder of a world that nothing else uses.
class ServerModule : public testing::Test {
protected:
    ServerModule() {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        SetEnvironmentVariableW(L"KORVANE_BASE", world.base().c_str());
        load();
    }
    ~ServerModule() override {
        if (module) FreeLibrary(module);
        CoUninitialize();
    }

    void load() {
        const auto arguments = testing::internal::GetArgvs();
        ASSERT_GT(arguments.size(), 1u) << "usage: test_automation_com Korvane.dll";
        module = LoadLibraryA(arguments[1].c_str());
        ASSERT_NE(module, nullptr) << arguments[1];
        get_class_object = exported<HRESULT WINAPI(REFCLSID, REFIID, void**)>(module, "DllGetClassObject");
        can_unload_now = exported<HRESULT WINAPI()>(module, "DllCanUnloadNow");
        ASSERT_TRUE(get_class_object && can_unload_now);
        ASSERT_TRUE(GetProcAddress(module, "DllRegisterServer") && GetProcAddress(module, "DllUnregisterServer"));
    }

    ComPointer<IClassFactory> factory_of(const ClassDescription& description) {
        ComPointer<IClassFactory> factory;
        EXPECT_EQ(
            get_class_object(guid_of(description.class_id), IID_IClassFactory, reinterpret_cast<void**>(factory.put())),
            S_OK);
        return factory;
    }

public:
    ComPointer<IDispatch> make_globals() {
        ComPointer<IDispatch> globals;
        factory_of(class_named("TuneGlobals"))
            ->CreateInstance(nullptr, IID_IDispatch, reinterpret_cast<void**>(globals.put()));
        return globals;
    }

protected:
    EmbeddedWorld world;
    HMODULE module = nullptr;
    HRESULT(WINAPI* get_class_object)(REFCLSID, REFIID, void**) = nullptr;
    HRESULT(WINAPI* can_unload_now)() = nullptr;
};

TEST_F(ServerModule, MakesItsClassesAndCountsTheirObjects) {
    void* nothing = nullptr;
    EXPECT_EQ(can_unload_now(), S_OK);
    for (const ClassDescription& description : class_descriptions()) {
        if (!description.create) {
            EXPECT_EQ(get_class_object(guid_of(description.class_id), IID_IClassFactory, &nothing),
                      CLASS_E_CLASSNOTAVAILABLE);
            continue;
        }
        const auto factory = factory_of(description);
        EXPECT_EQ(can_unload_now(), S_FALSE);
        ComPointer<IDispatch> object;
        EXPECT_EQ(
            factory->CreateInstance(nullptr, guid_of(description.interface_id), reinterpret_cast<void**>(object.put())),
            S_OK)
            << description.name;
        EXPECT_EQ(factory->CreateInstance(object.get(), IID_IUnknown, &nothing), CLASS_E_NOAGGREGATION);
        EXPECT_EQ(factory->CreateInstance(nullptr, IID_IClassFactory, &nothing), E_NOINTERFACE);
        EXPECT_EQ(nothing, nullptr);
    }
    EXPECT_EQ(get_class_object(IID_IUnknown, IID_IClassFactory, &nothing), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(can_unload_now(), S_OK) << "something was not released";
    const auto factory = factory_of(class_named("AbortHelper"));
    factory->LockServer(TRUE);
    factory->LockServer(FALSE);
}

// A missing base folder is the caller's mistake and must be told as what it is.
TEST_F(ServerModule, TellsWhyItCannotMakeAnObject) {
    SetEnvironmentVariableW(L"KORVANE_BASE", L"C:\\no such folder");
    void* nothing = &nothing;
    EXPECT_EQ(factory_of(class_named("TuneGlobals"))->CreateInstance(nullptr, IID_IDispatch, &nothing), -904);
    EXPECT_EQ(nothing, nullptr);
    ComPointer<IErrorInfo> info;
    ASSERT_EQ(GetErrorInfo(0, info.put()), S_OK);
    Bstr description;
    info->GetDescription(description.put());
    EXPECT_NE(text_of(description.get()).find("no such folder"), std::string::npos) << text_of(description.get());
}

std::string state_text(IDispatch& globals) {
    wchar_t name[] = L"GetCurrentInstrumentStateAsString";
    wchar_t* names = name;
    DISPID dispid = 0;
    globals.GetIDsOfNames(IID_NULL, &names, 1, 0, &dispid);
    DISPPARAMS none{};
    Variant result;
    EXPECT_EQ(globals.Invoke(dispid, IID_NULL, 0, DISPATCH_METHOD, &none, result.get(), nullptr, nullptr), S_OK);
    return result->vt == VT_BSTR ? text_of(result->bstrVal) : "";
}

// Objects of every class, used, released, and the library gone from memory, again and again.
TEST_F(ServerModule, UnloadsAndLeavesNothingBehind) {
    DWORD handles_at_first = 0;
    for (int round = 0; round < 20; ++round) {
        for (const ClassDescription& description : class_descriptions()) {
            if (!description.create) continue;
            ComPointer<IDispatch> object;
            ASSERT_EQ(
                factory_of(description)->CreateInstance(nullptr, IID_IDispatch, reinterpret_cast<void**>(object.put())),
                S_OK);
            EXPECT_TRUE(description.name != "TuneGlobals" || !state_text(*object.get()).empty());
        }
        ASSERT_EQ(can_unload_now(), S_OK);
        wchar_t path[MAX_PATH];
        GetModuleFileNameW(module, path, MAX_PATH);
        FreeLibrary(std::exchange(module, nullptr));
        ASSERT_EQ(GetModuleHandleW(path), nullptr) << "the library is still loaded";
        load();
        DWORD handles = 0;
        GetProcessHandleCount(GetCurrentProcess(), &handles);
        if (round == 2) handles_at_first = handles;
        ASSERT_TRUE(round <= 2 || handles <= handles_at_first + 2) << handles << " handles in round " << round;
    }
}

// Threads come and go; each has a trace state of its own.
TEST_F(ServerModule, ServesThreadsThatEnd) {
    for (int round = 0; round < 5; ++round) {
        HANDLE thread = CreateThread(
            nullptr, 0,
            [](void* self) -> DWORD {
                CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
                {
                    const auto globals = static_cast<ServerModule*>(self)->make_globals();
                    EXPECT_FALSE(state_text(*globals.get()).empty());
                }
                CoUninitialize();
                return 0;
            },
            this, 0, nullptr);
        ASSERT_EQ(WaitForSingleObject(thread, 60000), WAIT_OBJECT_0);
        CloseHandle(thread);
    }
    EXPECT_EQ(can_unload_now(), S_OK);
}

}  // namespace
}  // namespace korvane::automation
