// The client of the sound server itself: `orvane-desktop run`.
#pragma once

// Runs until it is told to end or the sound server ends. Returns the exit status: 0 if it was told
// to, 1 with a line on standard error otherwise. Thread: the program's first.
int RunClient();

// Returns true if a sound server answers.
bool ServerRuns();
