// Ends with 0 on a processor that runs the build of the library for AVX2.
int main() {
#ifdef _WIN32
    return __builtin_cpu_supports("avx2") ? 0 : 1;
#else
    return __builtin_cpu_supports("x86-64-v3") ? 0 : 1; // what the loader asks for
#endif
}
