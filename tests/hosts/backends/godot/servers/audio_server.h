#pragma once

// What the back end uses of the engine around it.

#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

enum Error { OK, FAILED, ERR_CANT_OPEN };

#define ERR_FAIL_COND_V(condition, result) \
    do {                                   \
        if (condition) {                   \
            return result;                 \
        }                                  \
    } while (false)
#define ERR_FAIL_COND(condition) \
    do {                         \
        if (condition) {         \
            return;              \
        }                        \
    } while (false)
#define ERR_PRINT(text) playerFailed(text)
#define ERR_PRINTS(text) playerFailed((text).c_str())
#define MIN(a, b) ((a) < (b) ? (a) : (b))

extern "C" void playerFailed(const char* what);

using String = std::string;
inline String itos(long number) {
    return std::to_string(number);
}
inline void print_verbose(const String& /*text*/) {
}
inline void zeromem(void* memory, std::size_t bytes) {
    std::memset(memory, 0, bytes);
}
inline unsigned closest_power_of_2(unsigned number) {
    unsigned power = 1;
    while (power * 2 <= number) {
        power *= 2;
    }
    return power;
}
inline int GLOBAL_GET(const char* setting) {
    return std::strcmp(setting, "audio/mix_rate") == 0         ? 44100
           : std::strcmp(setting, "audio/output_latency") == 0 ? 15
                                                               : 0;
}

template <class Element>
class Vector {
  public:
    void resize(std::size_t size) { elements_.resize(size); }
    [[nodiscard]] std::size_t size() const { return elements_.size(); }
    void clear() { elements_.clear(); }
    Element* ptrw() { return elements_.data(); }
    Element& operator[](std::size_t index) { return elements_[index]; }

  private:
    std::vector<Element> elements_;
};

class Mutex {
  public:
    static Mutex* create() { return new Mutex; }
    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }
    Error try_lock() { return mutex_.try_lock() ? OK : FAILED; }

  private:
    std::recursive_mutex mutex_;
};
inline void memdelete(Mutex* mutex) {
    delete mutex;
}

class AudioDriver {
  public:
    enum SpeakerMode { SPEAKER_MODE_STEREO };
    virtual ~AudioDriver() = default;
    virtual Error init() = 0;
    virtual void start() = 0;
    [[nodiscard]] virtual int get_mix_rate() const = 0;
    [[nodiscard]] virtual SpeakerMode get_speaker_mode() const = 0;
    virtual void lock() = 0;
    virtual void unlock() = 0;
    virtual void finish() = 0;
    virtual Error capture_start() { return FAILED; }
    virtual Error capture_stop() { return FAILED; }

  protected:
    [[nodiscard]] SpeakerMode get_speaker_mode_by_total_channels(int /*channels*/) const {
        return SPEAKER_MODE_STEREO;
    }
    void audio_server_process(int frames, int32_t* to);
    void start_counting_ticks() {}
    void stop_counting_ticks() {}
    void input_buffer_init(int /*frames*/) {}
    void input_buffer_write(int32_t /*sample*/) {}
};
