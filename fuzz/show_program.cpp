// Prints the program that fuzz_programs makes of a file: show_program FILE
#include <cstdint>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include "program_generator.h"

int main(int argc, char** argv) {
    std::ifstream file(argc == 2 ? argv[1] : "", std::ios::binary);
    const std::vector<char> text{std::istreambuf_iterator<char>(file), {}};
    if (text.empty()) {
        std::cerr << "Usage: " << argv[0] << " <input of fuzz_programs>\n";
        return 1;
    }
    const std::vector<std::uint8_t> bytes(text.begin(), text.end());
    const ProgramKind kind = bytes[0] % 4 == 3 ? ProgramKind::Plain : ProgramKind::Any;
    std::cout << ProgramGenerator(bytes.data() + 1, bytes.size() - 1, kind).program();
    return 0;
}
