# Sourced by the build scripts: one parallelism for every build, CMake's own variable
# when it is set, the machine's core count otherwise.
export CMAKE_BUILD_PARALLEL_LEVEL="${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)}"
