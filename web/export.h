// What scripts call in the module, as orvane_NAME, with numbers alone. Addresses and sizes are
// bytes of the module's memory, which `malloc` and `free` hand out. What `..._create` answers is 0
// if memory is refused; `..._release` takes it back.
#pragma once
#include <new>

#define ORVANE_EXPORT(name) extern "C" __attribute__((export_name("orvane_" #name)))
