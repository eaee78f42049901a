// The functions by which libFuzzer and the leak sanitizer know a program.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

int LLVMFuzzerInitialize(int* count, char*** arguments);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
const char* __lsan_default_suppressions();

}  // extern "C"
