// Fuzz target: the exported record, driven as a hostile application drives it.
//
// The input is a history of calls on one instance, each a byte and its arguments (little-endian):
//
//   0  create      one byte: bit 7: the safe-mode marker is there; the rest: 0 the right uuid, else
//                  the number of a byte of it to spoil
//   1  command     code, flags, block size, reply size (a byte each); code 255: four more bytes;
//                  then the block. Flags: 1 no block, 2 no reply block, 4 no reply size, 8 and 16
//                  odd addresses of block and reply
//   2  process     frames (two bytes, modulo 5001), flags: 0..3 the signal, 4 in place, 8 to 56
//                  repetitions
//   3  release
//   4  refuse      one byte n: the library's n-th allocation from here fails
//   5  bad calls   null pointers, different frame counts, descriptors
//
// Blocks are heap blocks of exactly the stated size. After every call the target demands what the
// headers promise: statuses, replies that stay inside what was offered, answers that agree with
// what was set, an untouched buffer after a refused process call, no sample above the gate, and no
// floating-point operation with an infinite or undefined result anywhere.
//
// Run it with scripts/fuzz.sh; fuzz/make_corpus.py writes the first inputs.
#include <cfenv>
#include <cmath>
#include <vector>

#include "fuzz/allocation.h"
#include "fuzz/fuzz_input.h"
#include "host/library.h"
#include "platform/file.h"
#include "platform/log.h"
#include "unit/parameters.h"

// The log, silent: lines would take most of the time.
void LogInfo(const char*, ...) {}

// The data directory, which holds at most the safe-mode marker.
static bool markerIsThere = false;
bool DataFileExists(const char*) {
    return markerIsThere;
}

namespace {

constexpr effect_uuid_s kUuid = {
    0xd92c3a90, 0x3e26, 0x11e2, 0xa25f, {0x08, 0x00, 0x20, 0x0c, 0x9a, 0x66}};
constexpr uint8_t kUntouched = 0xA5;
constexpr uint32_t kMaxFrames = 5000;
constexpr uint32_t kFramesPerInput = 8000;  // some 20 ms of the sanitized library
constexpr uint32_t kParameterReply = 20, kRefusedReply = 12, kStatusReply = 4;
constexpr int kHostileResults = FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW;

void DemandFiniteArithmetic() {
    Demand(std::fetestexcept(kHostileResults) == 0, "arithmetic stays finite");
}

// The input record of a parameter command, as far as the block reaches.
struct ParameterBlock {
    int32_t status = 0;
    uint32_t psize = 0, vsize = 0;
    int32_t id = 0, value = 0;
};

// What the library must answer, kept from its documentation.
struct Model {
    bool enabled = false, ready = false, configured = false;
    int32_t mode = 0, rate = 44100, channels = 2;
    float gate = 0.9999F;

    // Status of a configuration record.
    int32_t Configure(const effect_config_t& config) {
        const buffer_config_t &in = config.inputCfg, &out = config.outputCfg;
        const auto both = [&](uint16_t field) { return (in.mask & out.mask & field) != 0; };
        configured = false;
        if (both(EFFECT_CONFIG_SMP_RATE)) {
            if (in.samplingRate != out.samplingRate || in.samplingRate < 32000 ||
                in.samplingRate > 48000)
                return kStatusInvalid;
            rate = static_cast<int32_t>(in.samplingRate);
        }
        if (both(EFFECT_CONFIG_CHANNELS)) {
            if (in.channels != out.channels || (in.channels != 1 && in.channels != 3))
                return kStatusInvalid;
            channels = in.channels == 1 ? 1 : 2;
        }
        for (const buffer_config_t* side : {&in, &out})
            if ((side->mask & EFFECT_CONFIG_FORMAT) != 0 && side->format != AUDIO_FORMAT_PCM_16_BIT)
                return kStatusInvalid;
        configured = true;
        return kStatusOk;
    }

    int32_t SetParameter(uint32_t size, const ParameterBlock& block) {
        if (size < 16 || block.psize != 4 || block.vsize == 0 || block.vsize % 4 != 0 ||
            block.vsize > 16 || block.vsize > size - 16)
            return kStatusInvalid;
        if (block.id == PARAM_SET_MODE && (block.value == 0 || block.value == 1))
            mode = block.value;
        if (block.id == PARAM_LIMITER_GATE)
            gate = block.value > 0 ? static_cast<float>(block.value) / 100 : 0;
        return kStatusOk;
    }
};

class Session {
public:
    ~Session() { Release(); }
    Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void Step(FuzzInput& input) {
        switch (input.Take<uint8_t>() % 6) {
            case 0:
                return Create(input);
            case 1:
                return Command(input);
            case 2:
                return Process(input);
            case 3:
                return Release();
            case 4:
                return RefuseAllocation(input.Take<uint8_t>());
            default:
                return BadCalls();
        }
    }

private:
    void Create(FuzzInput& input) {
        Release();
        effect_uuid_s uuid = kUuid;
        const unsigned choice = input.Take<uint8_t>();
        const unsigned spoiled = choice & 127U;
        markerIsThere = (choice & 128U) != 0;
        if (spoiled != 0) reinterpret_cast<uint8_t*>(&uuid)[spoiled % sizeof uuid] ^= 1U;
        const uint64_t refusedBefore = RefusedAllocations();
        const int32_t status = AELI.create_effect(&uuid, 0, 0, &handle);
        const bool refused = RefusedAllocations() != refusedBefore;
        if (spoiled != 0) return Demand(status == kStatusNotFound && !handle, "unknown uuid");
        Demand((status == kStatusOk) == (handle != nullptr), "a handle exactly if created");
        Demand(refused || status == kStatusOk, "creation succeeds with memory");
        model = Model();
        memoryWasThere = !refused;
        if (handle) DemandAnswers();
    }

    void Release() {
        if (handle) Demand(AELI.release_effect(handle) == kStatusOk, "release");
        handle = nullptr;
    }

    void Command(FuzzInput& input) {
        uint32_t code = input.Take<uint8_t>();
        const unsigned flags = input.Take<uint8_t>();
        const uint32_t size = input.Take<uint8_t>();
        const uint32_t replyBytes = input.Take<uint8_t>();
        if (code == 255) code = input.Take<uint32_t>();
        const bool noBlock = (flags & 1U) != 0, noReply = (flags & 2U) != 0,
                   noReplySize = (flags & 4U) != 0;
        const ExactBlock<uint8_t> block(size, flags >> 3U & 1U);
        input.Take(block.data(), size);
        if (!handle) return;

        const uint32_t offered = noReply ? 0 : noReplySize ? kStatusReply : replyBytes;
        const ExactBlock<uint8_t> reply(offered, flags >> 4U & 1U);
        std::memset(reply.data(), kUntouched, offered);
        uint32_t replySize = replyBytes;
        const uint64_t refusedBefore = RefusedAllocations();
        const int32_t result = (*handle)->command(
            handle, code, size, noBlock ? nullptr : block.data(),
            noReplySize ? nullptr : &replySize, noReply ? nullptr : reply.data());
        DemandFiniteArithmetic();
        Demand(result == kStatusOk, "a command returns 0");
        if (RefusedAllocations() != refusedBefore) memoryWasThere = false;

        ParameterBlock parameter;
        if (!noBlock) std::memcpy(&parameter, block.data(), size < 20 ? size : sizeof parameter);
        int32_t status = kStatusOk;
        uint32_t written = offered >= kStatusReply ? kStatusReply : 0;
        uint32_t expectedSize = written != 0 ? replyBytes : 0;
        switch (code) {
            case EFFECT_CMD_ENABLE:
            case EFFECT_CMD_DISABLE:
                model.enabled = code == EFFECT_CMD_ENABLE;
                break;
            case EFFECT_CMD_CONFIGURE: {
                effect_config_t config;
                status = kStatusInvalid;
                if (noBlock || size < sizeof config) break;
                std::memcpy(&config, block.data(), sizeof config);
                status = model.Configure(config);
                break;
            }
            case EFFECT_CMD_SET_PARAM:
                status = noBlock ? kStatusInvalid : model.SetParameter(size, parameter);
                break;
            case EFFECT_CMD_INIT:
            case EFFECT_CMD_SET_PARAM_COMMIT:
                break;
            case EFFECT_CMD_GET_PARAM: {
                const bool known = !noBlock && size >= 16 && parameter.psize == 4 &&
                                   parameter.id >= PARAM_GET_VERSION &&
                                   parameter.id <= PARAM_GET_CHANNELS;
                const bool whole = known && offered >= kParameterReply && !noReplySize;
                status = whole ? kStatusOk : kStatusInvalid;
                written = whole ? kParameterReply : offered >= kRefusedReply ? kRefusedReply : 0;
                expectedSize = written;
                break;
            }
            default:
                written = 0;
                expectedSize = replyBytes;
        }
        if (written != 0)
            Demand(std::memcmp(reply.data(), &status, sizeof status) == 0, "the status replied");
        for (uint32_t i = written; i < offered; ++i)
            Demand(reply.data()[i] == kUntouched, "no byte behind the reply");
        Demand(noReplySize || replySize == expectedSize, "the reply's size");
        DemandAnswers();
    }

    int32_t Get(int32_t id) {
        const int32_t words[4] = {0, 4, 4, id};
        int32_t reply[5] = {-1, -1, -1, -1, -1};
        uint32_t replySize = sizeof reply;
        (*handle)->command(handle, EFFECT_CMD_GET_PARAM, sizeof words, const_cast<int32_t*>(words),
                           &replySize, reply);
        Demand(reply[0] == 0 && reply[2] == 4 && replySize == sizeof reply, "a query is answered");
        return reply[4];
    }

    void DemandAnswers() {
        Demand(Get(PARAM_GET_VERSION) == kLibraryVersionWord, "version");
        Demand(Get(PARAM_GET_ENABLED) == (model.enabled ? 1 : 0), "enabled");
        Demand(Get(PARAM_GET_MODE) == model.mode, "mode");
        Demand(Get(PARAM_GET_SAMPLING_RATE) == model.rate, "rate");
        Demand(Get(PARAM_GET_CHANNELS) == model.channels, "channels");
        const int32_t processing = Get(PARAM_GET_PROCESSING);
        Demand(processing == 0 || processing == 1, "processing");
        const int32_t ready = Get(PARAM_GET_READY);
        Demand(ready == 0 || model.configured, "not ready without a configuration");
        Demand(ready == 1 || !model.configured || !memoryWasThere, "ready once configured");
        model.ready = ready == 1;
    }

    void Process(FuzzInput& input) {
        const uint32_t frames = input.Take<uint16_t>() % (kMaxFrames + 1);
        const unsigned flags = input.Take<uint8_t>();
        for (unsigned i = 0; i <= (flags >> 3U & 7U); ++i) {
            if (!handle || framesProcessed + frames > kFramesPerInput) return;
            framesProcessed += frames + 1;
            ProcessBuffer(frames, flags & 3U, (flags & 4U) != 0);
        }
    }

    int16_t Sample(unsigned signal) {
        const uint32_t random = Random(&noise);
        switch (signal) {
            case 0:
                return static_cast<int16_t>(static_cast<uint16_t>(random));
            case 1:
                return 0;
            case 2:
                return (noise >> 8U) % 64 < 32 ? INT16_MIN : INT16_MAX;
            default:
                return static_cast<int16_t>(static_cast<int32_t>(random % 3) - 1);
        }
    }

    void ProcessBuffer(uint32_t frames, unsigned signal, bool inPlace) {
        const size_t samples = size_t{frames} * static_cast<size_t>(model.channels);
        const ExactBlock<int16_t> in(samples), apart(inPlace ? 0 : samples);
        std::vector<int16_t> fed(samples);
        for (int16_t& sample : fed) sample = Sample(signal);
        if (samples != 0) std::memcpy(in.data(), fed.data(), samples * 2);
        int16_t* const out = inPlace ? in.data() : apart.data();
        if (!inPlace) std::memset(out, kUntouched, samples * 2);
        const std::vector<int16_t> before(out, out + samples);

        audio_buffer_s input = {frames, in.data()}, output = {frames, out};
        const uint64_t refusedBefore = RefusedAllocations();
        const int32_t status = (*handle)->process(handle, &input, &output);
        DemandFiniteArithmetic();
        const bool refused = RefusedAllocations() != refusedBefore;
        const bool works = model.enabled && model.ready && frames != 0;
        Demand(status == (works ? kStatusOk : kStatusNoData), "the status of process");
        if (!inPlace && samples != 0)
            Demand(std::memcmp(in.data(), fed.data(), samples * 2) == 0, "the input is only read");
        if (!works && samples != 0)
            Demand(std::memcmp(out, before.data(), samples * 2) == 0, "refused: nothing written");
        if (!works || refused || model.gate > 1) return;
        const float highest = model.gate * 32767 + 1;
        for (size_t i = 0; i < samples; ++i)
            Demand(std::fabs(static_cast<float>(out[i])) <= highest, "no sample above the gate");
    }

    void BadCalls() {
        effect_descriptor_t descriptor, ofInstance;
        effect_uuid_s other = kUuid;
        other.node[5] ^= 1U;
        uint32_t effects = 0;
        Demand(EffectQueryNumberEffects(&effects) == kStatusOk && effects == 1, "one effect");
        Demand(EffectQueryEffect(1, &descriptor) == kStatusNotFound, "query out of range");
        Demand(EffectQueryEffect(0, nullptr) == kStatusInvalid, "query into null");
        Demand(EffectGetDescriptor(&other, &descriptor) == kStatusNotFound, "other uuid");
        Demand(EffectGetDescriptor(nullptr, &descriptor) == kStatusInvalid, "null uuid");
        Demand(EffectGetDescriptor(&kUuid, nullptr) == kStatusInvalid, "null descriptor");
        Demand(EffectCreate(nullptr, 0, 0, &handle) == kStatusInvalid, "create of null");
        Demand(EffectCreate(&kUuid, 0, 0, nullptr) == kStatusInvalid, "create into null");
        Demand(EffectRelease(nullptr) == kStatusInvalid, "release of null");
        Demand(EffectQueryEffect(0, &ofInstance) == kStatusOk &&
                   EffectGetDescriptor(&kUuid, &descriptor) == kStatusOk &&
                   std::memcmp(&descriptor, &ofInstance, sizeof descriptor) == 0,
               "one descriptor, however it is asked for");
        const int version = (GetLibraryVersionMain() << 24) | (GetLibraryVersionSub() << 16) |
                            (GetLibraryVersionExt() << 8) | GetLibraryVersionBuild();
        Demand(version == kLibraryVersionWord && GetLibraryVersionCodename() != nullptr, "version");
        if (!handle) return;
        Demand((*handle)->get_descriptor(handle, &ofInstance) == kStatusOk &&
                   std::memcmp(&descriptor, &ofInstance, sizeof descriptor) == 0,
               "and of the instance");
        Demand((*handle)->get_descriptor(handle, nullptr) == kStatusInvalid, "into null");
        Demand((*handle)->command(nullptr, 0, 0, nullptr, nullptr, nullptr) == kStatusInvalid,
               "command without an instance");
        int16_t sample[2] = {1, 1};
        audio_buffer_s one = {1, sample}, two = {2, sample}, empty = {1, nullptr};
        for (auto [in, out] : {std::pair(&one, &two), {&one, &empty}, {&empty, &one}})
            Demand((*handle)->process(handle, in, out) == kStatusInvalid, "unequal or no samples");
        Demand((*handle)->process(handle, &one, nullptr) == kStatusInvalid, "no output");
        Demand((*handle)->process(handle, nullptr, &one) == kStatusInvalid, "no input");
        Demand((*handle)->process(nullptr, &one, &one) == kStatusInvalid, "no instance");
    }

    effect_handle_t handle = nullptr;
    Model model;
    bool memoryWasThere = true;
    uint32_t noise = 0x2545F491;
    uint32_t framesProcessed = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    RefuseAllocation(0);
    markerIsThere = false;
    std::feclearexcept(FE_ALL_EXCEPT);
    Session session;
    while (!input.Empty()) session.Step(input);
    return 0;
}
