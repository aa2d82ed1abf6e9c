#include "platform/cubeb/MadeUpServer.h"

#include <array>
#include <memory>
#include <utility>

#include "platform/cubeb/JackWatch.h"
#include "platform/cubeb/PulseWatch.h"

using tqtest::theServer;

struct cubeb {
    std::string kind;
};

int cubeb_init(cubeb** context, const char* /*name*/, const char* kind) {
    theServer.reached.emplace_back(kind);
    if (!theServer.answers[kind]) {
        return CUBEB_ERROR;
    }
    *context = std::make_unique<cubeb>(cubeb{kind}).release();
    return CUBEB_OK;
}

void cubeb_destroy(cubeb* context) {
    const std::unique_ptr<cubeb> ended(context);
}

const char* cubeb_get_backend_id(cubeb* context) {
    return context->kind.c_str();
}

int cubeb_get_max_channel_count(cubeb* /*context*/, uint32_t* channels) {
    *channels = 2;
    return CUBEB_OK;
}

int cubeb_get_min_latency(cubeb* /*context*/, cubeb_stream_params* /*params*/, uint32_t* frames) {
    *frames = 1024;
    return CUBEB_OK;
}

int cubeb_get_preferred_sample_rate(cubeb* /*context*/, uint32_t* rate) {
    *rate = theServer.rate;
    return CUBEB_OK;
}

int cubeb_stream_init(cubeb* /*context*/, cubeb_stream** stream, const char* /*name*/,
                      cubeb_devid input, cubeb_stream_params* inputParams, cubeb_devid /*output*/,
                      cubeb_stream_params* outputParams, unsigned int latency,
                      cubeb_data_callback each, cubeb_state_callback state, void* self) {
    const bool hears = inputParams != nullptr;
    if (!hears && outputParams->rate == theServer.refusedRate) {
        return CUBEB_ERROR_INVALID_FORMAT;
    }
    theServer.openedRates.push_back(hears ? inputParams->rate : outputParams->rate);
    theServer.openedChannels = hears ? inputParams->channels : theServer.openedChannels;
    theServer.microphoneLatency = hears ? latency : theServer.microphoneLatency;
    theServer.openedMicrophone = hears ? input : theServer.openedMicrophone;
    *stream = std::make_unique<cubeb_stream>(cubeb_stream{each, state, self, hears}).release();
    (hears ? theServer.microphone : theServer.speakers) = *stream;
    return CUBEB_OK;
}

void cubeb_stream_destroy(cubeb_stream* stream) {
    (stream->isMicrophone ? theServer.microphone : theServer.speakers) = nullptr;
    const std::unique_ptr<cubeb_stream> ended(stream);
}

int cubeb_stream_start(cubeb_stream* stream) {
    return stream->isMicrophone && !theServer.microphoneStarts ? CUBEB_ERROR : CUBEB_OK;
}

int cubeb_stream_stop(cubeb_stream* stream) {
    if (!stream->isMicrophone && theServer.playsOnWhileItEnds) {
        std::vector<float> stereo(2 * 512);
        theServer.play(stereo);
    }
    return CUBEB_OK;
}

int cubeb_enumerate_devices(cubeb* /*context*/, cubeb_device_type type,
                            cubeb_device_collection* devices) {
    static std::array<cubeb_device_info, 2> microphones{};
    microphones[0].device_id = theServer.defaultIsMonitor ? "speakers.monitor" : "microphone";
    microphones[0].preferred = CUBEB_DEVICE_PREF_ALL;
    microphones[1].device_id = "another";
    for (std::size_t i = 0; i < microphones.size(); ++i) {
        microphones[i].devid = microphones[i].device_id;
        microphones[i].state = CUBEB_DEVICE_STATE_ENABLED;
        microphones[i].max_channels = static_cast<uint32_t>(i + 1);
    }
    devices->device = microphones.data();
    devices->count = type == CUBEB_DEVICE_TYPE_INPUT ? theServer.microphones : 0;
    return CUBEB_OK;
}

int cubeb_device_collection_destroy(cubeb* /*context*/, cubeb_device_collection* /*devices*/) {
    return CUBEB_OK;
}

// What the server says of itself.

class tqcubeb::PulseWatch::Connection {};

tqcubeb::PulseWatch::PulseWatch(const char* /*application*/) {
}

tqcubeb::PulseWatch::~PulseWatch() = default;

tqplatform::HeardPlace tqcubeb::PulseWatch::place() const {
    return theServer.place;
}

class tqcubeb::JackWatch::Client {};

tqcubeb::JackWatch::JackWatch(const char* /*application*/, std::function<void()> gone) {
    theServer.goneJack = std::move(gone);
}

tqcubeb::JackWatch::~JackWatch() {
    theServer.goneJack = nullptr;
}

void tqcubeb::PulseWatch::expect(const std::string& microphone) {
    theServer.expectedMicrophone = microphone;
}

bool tqcubeb::PulseWatch::mishears() const noexcept {
    const std::string& name = theServer.place.microphone.name;
    const std::string& expected = theServer.expectedMicrophone;
    return !name.empty() && (expected.empty() ? isOfPrograms(name) : name != expected);
}

UInt32 tqcubeb::JackWatch::period() const {
    return 1024;
}
