#include <MachO/TWLMachOBinary.h>

#include <iostream>

int main(int argc, char** argv) {
    const auto file = argc > 1 ? TWLMachOBinary::MachOBinaryWithPath(argv[1]) : nullptr;
    if (!file)
        return 1;
    file->enumerateUUIDs([](const std::optional<std::string>& uuid, const std::string& architecture) {
        std::cout << uuid.value_or("none") << ' ' << architecture << '\n';
    });
}
