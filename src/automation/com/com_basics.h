// The Windows interfaces of automation, with owners for what they hand out.
#pragma once

#include "platform/windows_text.h"
// after windows.h
#include <oaidl.h>
#include <oleauto.h>
#include <wrl/client.h>

#include <atomic>
#include <string>
#include <string_view>
#include <utility>

#include "korvane/error.h"

namespace korvane::automation {

/// A counted reference; a pointer that it is made of is counted once more.
template <class Interface>
using ComPointer = Microsoft::WRL::ComPtr<Interface>;
/// Takes over a reference that was counted already.
template <class Interface>
ComPointer<Interface> owned(Interface* counted) {
    ComPointer<Interface> result;
    *result.GetAddressOf() = counted;
    return result;
}

/// An object of ours behind an interface of the system, or behind IUnknown; counted once when it is made on the heap.
template <class Interface>
class Counted : public Interface {
public:
    virtual ~Counted() = default;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID wanted, void** result) override {
        if (!result) return E_POINTER;
        const bool known = IsEqualGUID(wanted, IID_IUnknown) || IsEqualGUID(wanted, __uuidof(Interface));
        *result = known ? this : nullptr;
        if (known) AddRef();
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --references;
        if (left == 0) delete this;
        return left;
    }

    std::atomic<ULONG> references{1};
};

/// A VARIANT that is cleared at its end.
class Variant {
public:
    Variant() { VariantInit(&variant_); }
    ~Variant() { VariantClear(&variant_); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;

    VARIANT* get() noexcept { return &variant_; }
    VARIANT& operator*() noexcept { return variant_; }
    VARIANT* operator->() noexcept { return &variant_; }
    /// Hands the content over.
    VARIANT release() noexcept {
        const VARIANT content = variant_;
        VariantInit(&variant_);
        return content;
    }

private:
    VARIANT variant_;
};

/// A VARIANT that refers to a variable of a kind.
inline VARIANT reference_to(VARTYPE kind, void* variable) {
    VARIANT reference{};
    reference.vt = static_cast<VARTYPE>(kind | VT_BYREF);
    reference.byref = variable;
    return reference;
}

/// A new system string; never null.
BSTR new_bstr(std::string_view utf8);
/// Null is the empty text.
std::string text_of(BSTR text);

/// "6e684b45-8112-40cc-a61a-aec826883ccd", without braces.
GUID guid_of(std::string_view text);

/// Error with the code as number and the system's text, where the code is a failure.
void require(HRESULT code, const char* operation);

/// Where this module was loaded from.
std::wstring module_path();
/// The type library inside this module. Error -2147319779 where it cannot be loaded.
ITypeLib& type_library();

// Errors on their way out of and into the Windows interfaces.

/// The code under which callers find a number again: 1 to 65535 travel in the control facility, negative numbers as
/// they are; any other would read as success, and is "invalid procedure call".
HRESULT code_of_number(std::int32_t number);
/// The number in a code.
std::int32_t number_of_code(HRESULT code);

/// The exception being handled, as an error: nothing may leave a border but a code.
Error error_in_flight() noexcept;

/// Fills what a caller of Invoke gets; returns DISP_E_EXCEPTION, or the code itself where the caller wants no details.
HRESULT report_exception(const Error& error, EXCEPINFO* details);
/// Leaves the error object of the thread for a caller of the vtable; returns the code.
HRESULT leave_error_object(const Error& error, const GUID& interface_id);

/// The error that a foreign object reported. `what` names the call for errors without a text.
Error error_of_call(HRESULT code, EXCEPINFO& details, const std::string& what);

}  // namespace korvane::automation
