// The DLL as the system loads it. The program's first argument names it.
#include <gtest/gtest.h>

#include "server_world.h"

namespace korvane::automation {
namespace {

/// The server on the base folder of a world that nothing else uses.
class ServerModule : public testing::Test {
protected:
    ServerModule() {
        SetEnvironmentVariableW(L"KORVANE_BASE", world.native.base().c_str());
        load();
    }
    ~ServerModule() override {
        if (module) FreeLibrary(module);
    }

    void load() {
        const auto arguments = testing::internal::GetArgvs();
        ASSERT_GT(arguments.size(), 1u) << "usage: test_automation_com Korvane.dll";
        module = LoadLibraryA(arguments[1].c_str());
        ASSERT_NE(module, nullptr) << arguments[1];
        get_class_object = exported<HRESULT WINAPI(REFCLSID, REFIID, void**)>("DllGetClassObject");
        can_unload_now = exported<HRESULT WINAPI()>("DllCanUnloadNow");
    }
    template <class Function>
    Function* exported(const char* name) {
        return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    }

    ComPointer<IClassFactory> factory_of(std::string_view class_id, HRESULT expected = S_OK) {
        ComPointer<IClassFactory> factory;
        const auto place = reinterpret_cast<void**>(factory.GetAddressOf());
        EXPECT_EQ(get_class_object(guid_of(class_id), IID_IClassFactory, place), expected) << class_id;
        return factory;
    }

public:
    ComPointer<IDispatch> make(const ClassDescription& description) {
        ComPointer<IDispatch> object;
        const auto place = reinterpret_cast<void**>(object.GetAddressOf());
        EXPECT_EQ(factory_of(description.class_id)->CreateInstance(nullptr, guid_of(description.interface_id), place),
                  S_OK)
            << description.name;
        return object;
    }

protected:
    ServerWorld world;
    HMODULE module = nullptr;
    HRESULT(WINAPI* get_class_object)(REFCLSID, REFIID, void**) = nullptr;
    HRESULT(WINAPI* can_unload_now)() = nullptr;
};

TEST_F(ServerModule, MakesItsClassesAndNothingElse) {
    const ClassDescription& globals = *find_class("TuneGlobals");
    factory_of(find_class("PeakList")->class_id, CLASS_E_CLASSNOTAVAILABLE);
    factory_of(globals.interface_id, CLASS_E_CLASSNOTAVAILABLE);
    void* nothing = &nothing;
    {
        const auto factory = factory_of(globals.class_id);
        EXPECT_EQ(can_unload_now(), S_FALSE);
        EXPECT_EQ(factory->CreateInstance(make(globals).Get(), IID_IUnknown, &nothing), CLASS_E_NOAGGREGATION);
        EXPECT_EQ(factory->CreateInstance(nullptr, IID_IClassFactory, &nothing), E_NOINTERFACE);
        EXPECT_EQ(nothing, nullptr);
        const auto parser = make(*find_class("SpectrumParser"));
        Call lists(*parser.Get());
        EXPECT_EQ(lists(L"GetPeakListsForCalibrantMasses", {}), S_OK) << lists.outcome;
        factory->LockServer(TRUE);
    }
    EXPECT_EQ(can_unload_now(), S_FALSE);
    factory_of(globals.class_id)->LockServer(FALSE);
    EXPECT_EQ(can_unload_now(), S_OK) << "something was not released";
}

// Objects of every class, made and used on threads that come and go, each with a trace state of its own; then the
// library gone from memory, again and again.
TEST_F(ServerModule, UnloadsAndLeavesNothingBehind) {
    const auto use = [](void* self) -> DWORD {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        for (const ClassDescription& description : class_descriptions()) {
            if (!description.create) continue;
            const auto object = static_cast<ServerModule*>(self)->make(description);
            Call call(*object.Get());
            EXPECT_TRUE(description.name != "TuneGlobals" || call(L"GetCurrentInstrumentStateAsString", {}) == S_OK);
        }
        CoUninitialize();
        return 0;
    };
    DWORD handles_at_first = 0;
    for (int round = 0; round < 20; ++round) {
        const HANDLE thread = CreateThread(nullptr, 0, use, static_cast<ServerModule*>(this), 0, nullptr);
        ASSERT_EQ(WaitForSingleObject(thread, 60000), WAIT_OBJECT_0);
        CloseHandle(thread);
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

}  // namespace
}  // namespace korvane::automation
