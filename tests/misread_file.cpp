// Stands before libsndfile's sf_open. The renderer opens a descriptor's path to read its result
// back. Then this function tells of one frame, hertz or channel more, or of no file, as
// ORVANE_MISREAD says. "later" is one frame more when this happens for the third time, which is
// after the gain tags.
#include <dlfcn.h>
#include <sndfile.h>

#include <cstdlib>
#include <string>

extern "C" __attribute__((visibility("default"))) SNDFILE* sf_open(const char* path, int mode,
                                                                   SF_INFO* info) {
    const auto real = reinterpret_cast<decltype(&sf_open)>(dlsym(RTLD_NEXT, "sf_open"));
    SNDFILE* const file = real(path, mode, info);
    if (std::string(path).rfind("/proc/self/fd/", 0) != 0) return file;
    const std::string wrong = std::getenv("ORVANE_MISREAD");
    static int opened = 0;
    ++opened;
    if (wrong == "frames" || (wrong == "later" && opened == 3)) ++info->frames;
    if (wrong == "rate") ++info->samplerate;
    if (wrong == "channels") ++info->channels;
    if (wrong != "file") return file;
    sf_close(file);
    return nullptr;
}
