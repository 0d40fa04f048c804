// A variable of the process's environment for the life of an object; empty means not set.
#pragma once

#include <cstdlib>
#include <string>

namespace korvane {

class EnvironmentVariable {
public:
    EnvironmentVariable(const char* name, const std::string& value) : name_(name) {
        if (const char* old = std::getenv(name)) old_ = old;
        set(name_, value);
    }
    ~EnvironmentVariable() { set(name_, old_); }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

    static void set(const char* name, const std::string& value) {
#ifdef _WIN32
        _putenv_s(name, value.c_str());
#else
        value.empty() ? unsetenv(name) : setenv(name, value.c_str(), 1);
#endif
    }

private:
    const char* name_;
    std::string old_;
};

}  // namespace korvane
