// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" void __gcov_dump();
extern "C" [[noreturn]] void __real__Exit(int status);

/// The linker replaces std::_Exit by this function, because std::_Exit does not write the coverage counters.
extern "C" [[noreturn]] void __wrap__Exit(int status) {
    __gcov_dump();
    __real__Exit(status);
}
// NOLINTEND(bugprone-reserved-identifier)
