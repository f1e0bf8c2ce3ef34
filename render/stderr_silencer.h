// Libraries that talk to standard error are kept out of the user's sight while they are called.
#pragma once

// While an object lives, what anybody writes to file descriptor 2 goes nowhere. One at a time. A
// sanitizer's report still gets to where standard error was.
class StderrSilencer {
public:
    explicit StderrSilencer(bool silence = true);
    ~StderrSilencer();
    StderrSilencer(const StderrSilencer&) = delete;
    StderrSilencer& operator=(const StderrSilencer&) = delete;

private:
    int saved = -1;
};
