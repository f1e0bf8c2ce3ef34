// Declares functions that scripts call in the module as orvane_NAME. Arguments and results are
// numbers. Addresses and sizes are in bytes of the module's memory, which scripts get from `malloc`
// and return with `free`. `..._create` returns 0 if memory is refused. `..._release` frees what
// `..._create` returned.
#pragma once
#include <new>

#define ORVANE_EXPORT(name) extern "C" __attribute__((export_name("orvane_" #name)))
