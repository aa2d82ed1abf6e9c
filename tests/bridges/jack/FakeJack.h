#pragma once

#include <jack/jack.h>
#include <jack/thread.h>

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// A made-up libjack without a server: a cycle is run when the test says so, and keeps what the
// ports hold behind it.

struct _jack_port {
    std::string type;
    unsigned long flags = 0;
    std::vector<float> memory;
    bool hasMemory = true;
    int asked = 0;  ///< how often its memory was asked for
};

struct _jack_client {
    std::string name;
    jack_nframes_t sampleRate = 48000;
    JackProcessCallback process = nullptr;
    void* processArgument = nullptr;
    JackThreadCallback thread = nullptr;
    void* threadArgument = nullptr;
    JackSampleRateCallback rateChanged = nullptr;
    void* rateArgument = nullptr;
    std::vector<std::unique_ptr<_jack_port>> ports;
    bool isActive = false;
    bool isClosed = false;
    int answer = 0;                     ///< of calls that answer with a number
    std::deque<jack_nframes_t> coming;  ///< cycles that jack_cycle_wait() hands out, then 0
    std::vector<float> heard;           ///< the output ports behind each cycle, interleaved
    std::vector<int> results;           ///< of the cycles
    std::mutex cycle;                   ///< held while one runs
    jack_nframes_t frames = 0;          ///< of the cycle that is under way
};

extern "C" {
/// One cycle of a client with a process callback. Nothing when it is not active.
void fake_jack_cycle(jack_client_t* client, jack_nframes_t frames);
/// The server plays that many frames a second from now on.
void fake_jack_rate(jack_client_t* client, jack_nframes_t rate);
}
