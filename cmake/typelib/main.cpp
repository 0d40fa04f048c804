// Makes a type library with widl, which cannot write every default value:
// typelib idl OUT.idl
// typelib patch IN.tlb OUT.tlb
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "automation/type_library.h"
#include "patch.h"

namespace {

std::string read(const std::string& path) {
    std::ostringstream text;
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path);
    text << in.rdbuf();
    return text.str();
}

void write(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary);
    out << bytes;
    if (!out.flush()) throw std::runtime_error("cannot write " + path);
}

}  // namespace

int main(int count, char** arguments) try {
    const std::vector<std::string> words(arguments + 1, arguments + count);
    if (words.size() == 2 && words[0] == "idl")
        write(words[1], korvane::automation::idl_text(korvane::automation::IdlDialect::widl));
    else if (words.size() == 3 && words[0] == "patch")
        write(words[2], typelib::with_defaults(read(words[1])));
    else
        throw std::runtime_error("usage: typelib idl IDL | typelib patch TLB TLB");
} catch (const std::exception& error) {
    std::fprintf(stderr, "typelib: %s\n", error.what());
    return 1;
}
