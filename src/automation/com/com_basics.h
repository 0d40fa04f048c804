// The Windows interfaces of automation, with owners for what they hand out.
#pragma once

#include "platform/windows_text.h"
// after windows.h
#include <oaidl.h>
#include <oleauto.h>

#include <string>
#include <string_view>
#include <utility>

namespace korvane::automation {

/// A counted reference.
template <class Interface>
class ComPointer {
public:
    ComPointer() = default;
    /// Takes over a reference that was counted already.
    static ComPointer owned(Interface* pointer) {
        ComPointer result;
        result.pointer_ = pointer;
        return result;
    }
    static ComPointer shared(Interface* pointer) {
        if (pointer) pointer->AddRef();
        return owned(pointer);
    }
    ComPointer(const ComPointer& other) : pointer_(other.pointer_) {
        if (pointer_) pointer_->AddRef();
    }
    ComPointer(ComPointer&& other) noexcept : pointer_(std::exchange(other.pointer_, nullptr)) {}
    ComPointer& operator=(ComPointer other) noexcept {
        std::swap(pointer_, other.pointer_);
        return *this;
    }
    ~ComPointer() {
        if (pointer_) pointer_->Release();
    }

    Interface* get() const noexcept { return pointer_; }
    Interface* operator->() const noexcept { return pointer_; }
    explicit operator bool() const noexcept { return pointer_ != nullptr; }
    Interface* release() noexcept { return std::exchange(pointer_, nullptr); }
    /// Place for an out-parameter; must be empty.
    Interface** put() noexcept { return &pointer_; }

private:
    Interface* pointer_ = nullptr;
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

/// A new system string; never null.
BSTR new_bstr(std::string_view utf8);
/// Null is the empty text.
std::string text_of(BSTR text);

/// A system string that is freed at its end.
class Bstr {
public:
    explicit Bstr(std::string_view utf8) : text_(new_bstr(utf8)) {}
    Bstr() = default;
    ~Bstr() { SysFreeString(text_); }
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;

    BSTR get() const noexcept { return text_; }
    BSTR* put() noexcept { return &text_; }

private:
    BSTR text_ = nullptr;
};

/// "6e684b45-8112-40cc-a61a-aec826883ccd", without braces.
GUID guid_of(std::string_view text);

/// Error with the code as number and the system's text, where the code is a failure.
void require(HRESULT code, const char* operation);

}  // namespace korvane::automation
