// What the command line and the window may ask for: one JSON object a request, one an answer.
//
//   {"do": "status"}                              settings, output, latency, levels, players
//   {"do": "outputs"}                             outputs with their profiles
//   {"do": "on", "settings": [...], "for": NAME}  both may be missing: as it was, present output
//   {"do": "off", "for": NAME}                    the profile "off here"
//   {"do": "set", "key": "process", "value": "1.2", "for": NAME}
//   {"do": "leave-out", "application": NAME, "out": false}
//   {"do": "bypass", "on": true}                  the input is heard, with the same latency
//   {"do": "quit"}                                the sound goes on without us
//
// An answer has "ok"; if it is false, "error" says why in a sentence. Thread: any, one at a time.
#pragma once
#include <string>
#include <vector>

#include "desktop/profiles.h"
#include "desktop/router.h"
#include "live/live_stream.h"

// What only a running client can tell and do.
class RunningClient {
public:
    virtual ~RunningClient() = default;
    virtual std::string PresentOutput() const = 0;
    virtual std::vector<OutputDevice> Outputs() const = 0;
    virtual std::vector<Player> Players() const = 0;
    virtual LiveStream::Levels Levels() const = 0;
    virtual uint32_t RateHz() const = 0;
    virtual uint32_t LatencyFrames() const = 0;
    virtual void ProfilesChanged() = 0;
    virtual void SetBypass(bool wanted) = 0;
    virtual void Quit() = 0;
};

// client: null while none runs; then requests change the profiles in the file alone.
std::string AnswerRequest(const std::string& line, Profiles* profiles, RunningClient* client);
