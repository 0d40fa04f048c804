// typelib prepare IN.idl OUT.idl OUT.defaults
// typelib patch IN.tlb IN.defaults OUT.tlb
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "typelib.h"

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
    if (words.size() == 4 && words[0] == "prepare") {
        const typelib::Prepared prepared = typelib::prepare(read(words[1]));
        write(words[2], prepared.idl);
        write(words[3], prepared.defaults);
    } else if (words.size() == 4 && words[0] == "patch") {
        write(words[3], typelib::patch(read(words[1]), read(words[2])));
    } else {
        throw std::runtime_error("usage: typelib prepare IDL IDL DEFAULTS | typelib patch TLB DEFAULTS TLB");
    }
} catch (const std::exception& error) {
    std::fprintf(stderr, "typelib: %s\n", error.what());
    return 1;
}
