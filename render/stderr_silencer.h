// Hides what a library writes to standard error while it is called.
#pragma once

// While an object lives, everything that is written to file descriptor 2 is dropped. Only one
// object may live at a time. A sanitizer's report still reaches the former standard error.
class StderrSilencer {
public:
    explicit StderrSilencer(bool silence = true);
    ~StderrSilencer();
    StderrSilencer(const StderrSilencer&) = delete;
    StderrSilencer& operator=(const StderrSilencer&) = delete;

private:
    int saved = -1;
};
