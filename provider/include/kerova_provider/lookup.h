// The operation table of our data-array library, callable from C++ without going
// through the shared library's export: the entry point forwards to it, and native
// tests put filtering providers in front of it.
#pragma once

// The operation with this number, or null for numbers the library does not answer.
// The result for a number never changes during the life of the process.
void* kerova_provider_lookup(int functionNumber);
