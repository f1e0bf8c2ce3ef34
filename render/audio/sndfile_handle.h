// A handle of libsndfile that closes the file when it is destroyed.
#pragma once
#include <sndfile.h>

#include <memory>

struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SndfileHandle = std::unique_ptr<SNDFILE, SndfileCloser>;
