// Answers the requests of the command line and of other programs. A request is one JSON object, and
// so is its answer.
//
//   {"do": "status"}                              settings, output, latency, levels in dB, players
//   {"do": "outputs"}                             outputs with their profiles
//   {"do": "on", "settings": [...], "for": NAME}  settings: lines of a settings file; without them,
//                                                 the output's former settings
//   {"do": "off", "for": NAME}                    players go directly to this output
//   {"do": "set", "key": "process", "value": "1.2", "for": NAME}
//   {"do": "leave-out", "application": NAME, "out": false}
//   {"do": "set", "settings": [...], "for": NAME} all settings; whether the output is on stays
//   {"do": "bypass", "on": true, "gain_db": -3}   plays the input with this gain and the same
//                                                 latency, until the connection ends
//   {"do": "watch", "on": true}                   from now on, events come without being asked for
//   {"do": "quit"}                                the sound goes on without us
//
// NAME is an output's `node.name`. Without "for", a request means the present output. An answer has
// "ok"; if it is false, "error" says why.
//
// Events are lines without "ok". They come ten times a second at most:
//
//   {"event": "levels", "before_db": -20.1, "after_db": -18, "gain_db": 2.1, "limiting": false}
//   {"event": "state", "status": {...}, "outputs": [...]}   at first, and after each change
//
// Thread: any, one at a time.
#pragma once
#include <string>
#include <vector>

#include "desktop/profiles.h"
#include "desktop/router.h"
#include "live/live_stream.h"

// The part of a request that needs a running client. Thread: the loop's thread.
class RunningClient {
public:
    virtual ~RunningClient() = default;
    virtual std::string PresentOutput() const = 0;
    virtual std::vector<OutputDevice> Outputs() const = 0;
    virtual std::vector<Player> Players() const = 0;
    virtual LiveStream::Levels Levels() const = 0;
    virtual uint32_t RateHz() const = 0;
    virtual uint32_t LatencyFrames() const = 0;
    // The profiles have changed: brings the sound to them.
    virtual void ProfilesChanged() = 0;
    // gainDb: of the input that is heard while `wanted` is true.
    virtual void SetBypass(bool wanted, double gainDb) = 0;
    // Gives all players back and ends the client soon.
    virtual void Quit() = 0;
};

// Holds what a program has asked for. The wishes end with its connection.
struct ConnectionWishes {
    bool watches = false;   // it gets events
    bool bypasses = false;  // it hears the input
};

// Returns the answer to one line, without a line end. client and wishes: null if no client runs;
// requests then only change the profiles in the file.
std::string AnswerRequest(const std::string& line, Profiles* profiles, RunningClient* client,
                          ConnectionWishes* wishes);

// Return the lines of the two events, without a line end.
std::string LevelsEvent(const RunningClient& client);
std::string StateEvent(const Profiles& profiles, const RunningClient& client);
