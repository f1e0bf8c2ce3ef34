#include "client/library_file.h"

#include <dlfcn.h>

LibraryFile::LibraryFile(const std::string& path)
    // dlopen searches the system's folders for a name without a slash.
    : handle(dlopen((path.find('/') == std::string::npos ? "./" + path : path).c_str(),
                    RTLD_NOW | RTLD_LOCAL)) {
    if (handle == nullptr) {
        const char* const reason = dlerror();
        fault =
            std::string("cannot load the library: ") + (reason != nullptr ? reason : path.c_str());
        return;
    }
    const auto* const found = static_cast<const audio_effect_library_t*>(
        dlsym(handle, AUDIO_EFFECT_LIBRARY_INFO_SYM_AS_STR));
    if (found == nullptr)
        fault = path + " exports no effect library record";
    else if (found->tag != AUDIO_EFFECT_LIBRARY_TAG)
        fault = path + " has a library record with a wrong tag";
    else if (found->version >> 16 != EFFECT_LIBRARY_API_VERSION >> 16)
        fault = path + " is made for another version of the effect interface";
    else
        record = found;
}

LibraryFile::~LibraryFile() {
    if (handle != nullptr) dlclose(handle);
}
