// Fuzz target: calls the exported record as a hostile application does.
//
// The input is a history of calls on one instance. Each call is a byte and its arguments
// (little-endian):
//
//   0  create      one byte: bit 7: the safe-mode marker exists; the rest: 0 for the right uuid,
//                  else the number of the byte of it to change
//   1  command     code, flags, block size, reply size (a byte each); code 255: four more bytes for
//                  the code; then the block. Flags: 1 no block, 2 no reply block, 4 no reply size,
//                  8 and 16 odd addresses of block and reply
//   2  process     frames (two bytes, modulo 5001), flags: 0..3 the signal, 4 in place, 8 to 56
//                  repetitions
//   3  release
//   4  refuse      one byte n: the library's n-th allocation from here fails
//   5  look up     descriptors of the effect, of others and of the instance; null pointers
//   6  configure   rate (two bytes: 32000 Hz and more, or from 65024 on a usual one), channels (bit
//   0)
//                  and fields that are left out (bits 1 to 4); then the number of a byte to change,
//                  and what to change in it
//   7  order       one byte: a command without a block
//   8  set         one byte: which parameter; then two values, a byte for a small one or five bytes
//   9  get         one byte: which parameter
//
// Calls 6 to 9 are well formed, because random bytes almost never are. A history begins with an
// instance.
//
// Blocks are heap blocks of exactly the stated size. After every call the target demands what the
// headers promise:
//   - the right status, and answers that agree with what was set;
//   - replies that stay inside the offered block;
//   - an unchanged buffer after a refused process call;
//   - no sample above the gate;
//   - no floating-point operation anywhere with an infinite or undefined result.
//
// Run it with scripts/fuzz.sh.
#include <algorithm>
#include <cfenv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <new>
#include <optional>
#include <span>
#include <vector>

#include "client/instance.h"
#include "fuzz/fuzz_input.h"
#include "host/entry_points.h"
#include "platform/log.h"
#include "platform/system.h"
#include "table/parameters.h"

// Discards the log, because its lines would take most of the time.
void LogInfo(const char*, ...) {}

// Stands for the data directory, which holds nothing but perhaps the safe-mode marker.
static bool markerIsThere = false;
bool DataFileExists(const char*) {
    return markerIsThere;
}
// Stands for the clock. It advances by a quarter of a second each time it is read.
static uint32_t clockMs = 0;
int32_t WallClockMilliseconds() {
    return static_cast<int32_t>(clockMs += 250);
}

// The library's allocation number `allocationToRefuse` from now on fails, once. 1 is the next
// allocation, 0 is none.
static uint32_t allocationToRefuse = 0;
static uint64_t refusedAllocations = 0;  // since the process began

// More bytes than any object needs. A larger request fails, as on a machine without that memory.
static bool IsRefused(size_t size) {
    constexpr size_t kLargest = 16U << 20U;
    if (size <= kLargest && (allocationToRefuse == 0 || --allocationToRefuse != 0)) return false;
    ++refusedAllocations;
    return true;
}

// The library allocates only through these two operators. The targets and the fuzzer use the
// throwing operators, which remain those of the sanitizer.
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return IsRefused(size) ? nullptr : ::operator new(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return IsRefused(size) ? nullptr : ::operator new[](size);
}

namespace {

constexpr uint8_t kUntouched = 0xA5;
constexpr uint32_t kMaxFrames = 5000;
constexpr uint32_t kFramesPerInput = 8000;  // takes about 20 ms with the sanitizers
constexpr uint32_t kParameterReply = 20, kRefusedReply = 12, kStatusReply = 4;
constexpr int kHostileResults = FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW;

// Predicts the library's answers from its documentation.
struct Model {
    bool enabled = false, ready = false, configured = false;
    int32_t mode = 0, rate = 44100, channels = 2;
    float gate = 0.9999F;

    // Returns the status of a configuration in a block of `size` bytes.
    int32_t Configure(uint32_t size, const uint8_t* block) {
        effect_config_t config;
        if (size < sizeof config) return kStatusInvalid;
        std::memcpy(&config, block, sizeof config);
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

    int32_t SetParameter(uint32_t size, const ParameterCommand& block) {
        const uint32_t valueBytes = block.header.vsize;
        if (size < 16 || block.header.psize != 4 || valueBytes == 0 || valueBytes % 4 != 0 ||
            valueBytes > 16 || valueBytes > size - 16)
            return kStatusInvalid;
        const int32_t value = block.values[0];
        if (block.id == PARAM_SET_MODE && (value == 0 || value == 1)) mode = value;
        if (block.id == PARAM_LIMITER_GATE) gate = value > 0 ? static_cast<float>(value) / 100 : 0;
        return kStatusOk;
    }
};

struct Session {
    // `choice` is the argument of call 0.
    void Create(unsigned choice) {
        Release();
        effect_uuid_s uuid = kOrvaneUuid;
        const unsigned spoiled = choice & 127U;
        markerIsThere = (choice & 128U) != 0;
        if (spoiled != 0) reinterpret_cast<uint8_t*>(&uuid)[spoiled % sizeof uuid] ^= 1U;
        refusedBefore = refusedAllocations;
        instance.emplace(AELI, uuid);
        handle = instance->handle;
        const int32_t status = instance->CreateStatus();
        model = Model();
        Demand((status == kStatusOk) == (handle != nullptr), "a handle exactly if created");
        Demand(spoiled == 0 || status == kStatusNotFound, "unknown uuid");
        Demand(spoiled != 0 || !MemoryWasThere() || status == kStatusOk, "created with memory");
        if (handle) DemandAnswers();
    }

    // Returns whether all the instance's allocations have succeeded.
    bool MemoryWasThere() const { return refusedAllocations == refusedBefore; }

    void Release() {
        if (instance) Demand(instance->Release() == kStatusOk, "release");
        handle = nullptr;
    }

    void AnyCommand(FuzzInput& input) {
        uint32_t code = input.Take<uint8_t>();
        const unsigned flags = input.Take<uint8_t>();
        const uint32_t size = input.Take<uint8_t>(), replyBytes = input.Take<uint8_t>();
        if (code == 255) code = input.Take<uint32_t>();
        std::vector<uint8_t> bytes(size);
        input.Take(bytes.data(), size);
        Command(code, bytes, flags, replyBytes);
    }

    void Configure(FuzzInput& input) {
        constexpr uint32_t kFirstUsual = 65024, kUsual[] = {32000, 44100, 48000, 37800};
        const uint32_t rate = input.Take<uint16_t>();
        const unsigned bits = input.Take<uint8_t>();
        effect_config_t config =
            MakeConfig(rate < kFirstUsual ? 32000 + rate % 16001 : kUsual[rate % 4], 1 + bits % 2);
        constexpr uint16_t kFields[] = {EFFECT_CONFIG_SMP_RATE, EFFECT_CONFIG_CHANNELS,
                                        EFFECT_CONFIG_FORMAT, EFFECT_CONFIG_ACC_MODE};
        for (size_t i = 0; i < std::size(kFields); ++i)
            if ((bits >> (i + 1) & 1U) != 0)
                config.inputCfg.mask &= static_cast<uint16_t>(~kFields[i]);
        std::vector<uint8_t> bytes = BytesOf(config);
        const size_t spoiled = input.Take<uint8_t>();
        if (spoiled < bytes.size()) bytes[spoiled] ^= input.Take<uint8_t>();
        Command(EFFECT_CMD_CONFIGURE, bytes, 0, kStatusReply);
    }

    void Order(FuzzInput& input) {
        constexpr uint32_t kCodes[] = {EFFECT_CMD_ENABLE, EFFECT_CMD_DISABLE, EFFECT_CMD_RESET,
                                       EFFECT_CMD_INIT, EFFECT_CMD_SET_PARAM_COMMIT};
        Command(kCodes[input.Take<uint8_t>() % std::size(kCodes)], {}, 0, kStatusReply);
    }

    void Parameter(FuzzInput& input, bool sets) {
        const auto value = [&input] {
            const int32_t small = input.Take<uint8_t>();
            return small < 240 ? small - 40 : input.Take<int32_t>();
        };
        const auto id = kParameters[input.Take<uint8_t>() % std::size(kParameters)].id;
        if (sets)
            Command(EFFECT_CMD_SET_PARAM, BytesOf(PackSet(id, {value(), value()})), 0,
                    kStatusReply);
        else
            Command(EFFECT_CMD_GET_PARAM, BytesOf(PackSet(id, {0})), 0, kParameterReply);
    }

    template <typename Record>
    static std::vector<uint8_t> BytesOf(const Record& record) {
        const auto* const bytes = reinterpret_cast<const uint8_t*>(&record);
        return {bytes, bytes + sizeof record};
    }

    // Sends a command and checks the answer. `flags` are those of call 1.
    void Command(uint32_t code, const std::vector<uint8_t>& bytes, unsigned flags,
                 uint32_t replyBytes) {
        if (!handle) return;
        const auto size = static_cast<uint32_t>(bytes.size());
        const bool noBlock = (flags & 1U) != 0, noReply = (flags & 2U) != 0,
                   noReplySize = (flags & 4U) != 0;
        const ExactBlock<uint8_t> block(size, flags >> 3U & 1U);
        std::copy(bytes.begin(), bytes.end(), block.data());

        const uint32_t offered = noReply ? 0 : noReplySize ? kStatusReply : replyBytes;
        const ExactBlock<uint8_t> reply(offered, flags >> 4U & 1U);
        std::memset(reply.data(), kUntouched, offered);
        uint32_t replySize = replyBytes;
        const int32_t result = (*handle)->command(
            handle, code, size, noBlock ? nullptr : block.data(),
            noReplySize ? nullptr : &replySize, noReply ? nullptr : reply.data());
        Demand(result == kStatusOk, "a command returns 0");

        const uint32_t readable = noBlock ? 0 : size;
        ParameterCommand parameter;
        std::memcpy(static_cast<void*>(&parameter), block.data(),
                    std::min<size_t>(readable, offsetof(ParameterCommand, bytes)));
        int32_t status = kStatusOk;
        uint32_t written = offered >= kStatusReply ? kStatusReply : 0;
        uint32_t expectedSize = written;
        if (code == EFFECT_CMD_GET_PARAM) {
            const bool whole = readable >= 16 && parameter.header.psize == 4 &&
                               parameter.id >= PARAM_GET_VERSION &&
                               parameter.id <= PARAM_GET_CHANNELS && offered >= kParameterReply;
            status = whole ? kStatusOk : kStatusInvalid;
            written = whole ? kParameterReply : offered >= kRefusedReply ? kRefusedReply : 0;
            expectedSize = written;
        } else if (code == EFFECT_CMD_CONFIGURE) {
            status = model.Configure(readable, block.data());
        } else if (code == EFFECT_CMD_SET_PARAM) {
            status = model.SetParameter(readable, parameter);
        } else if (code == EFFECT_CMD_ENABLE || code == EFFECT_CMD_DISABLE) {
            model.enabled = code == EFFECT_CMD_ENABLE;
        } else if (code != EFFECT_CMD_INIT && code != EFFECT_CMD_SET_PARAM_COMMIT) {
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

    void DemandAnswers() {
        Demand(std::fetestexcept(kHostileResults) == 0, "arithmetic stays finite");
        Demand(instance->Get(PARAM_GET_VERSION) == kLibraryVersionWord, "version");
        Demand(instance->Get(PARAM_GET_ENABLED) == (model.enabled ? 1 : 0), "enabled");
        Demand(instance->Get(PARAM_GET_MODE) == model.mode, "mode");
        Demand(instance->Get(PARAM_GET_SAMPLING_RATE) == model.rate, "rate");
        Demand(instance->Get(PARAM_GET_CHANNELS) == model.channels, "channels");
        const int32_t processing = instance->Get(PARAM_GET_PROCESSING);
        const int32_t ready = instance->Get(PARAM_GET_READY);
        Demand(processing == 0 || processing == 1, "processing");
        Demand(ready == 0 || model.configured, "not ready without a configuration");
        Demand(ready == 1 || !model.configured || !MemoryWasThere(), "ready once configured");
        model.ready = ready == 1;
    }

    void Process(FuzzInput& input) {
        const uint32_t frames = input.Take<uint16_t>() % (kMaxFrames + 1);
        const unsigned flags = input.Take<uint8_t>();
        const bool inPlace = (flags & 4U) != 0;
        for (unsigned i = 0; i <= (flags >> 3U & 7U); ++i) {
            if (!handle || framesProcessed + frames > kFramesPerInput) return;
            framesProcessed += frames + 1;
            std::vector<int16_t> fed(size_t{frames} * static_cast<size_t>(model.channels));
            for (int16_t& sample : fed) {
                const auto random = static_cast<int32_t>(Random(&noise));
                const int32_t extreme = (random & 0x2000) != 0 ? INT16_MAX : INT16_MIN;
                const int32_t choices[] = {random, 0, extreme, random % 2};
                sample = static_cast<int16_t>(choices[flags & 3U]);
            }
            const ExactBlock<int16_t> in(fed.size()), apart(fed.size());
            std::copy(fed.begin(), fed.end(), in.data());
            int16_t* const out = inPlace ? in.data() : apart.data();
            if (!inPlace) std::fill_n(out, fed.size(), kUntouched);
            const std::vector<int16_t> before(out, out + fed.size());

            audio_buffer_s source = {frames, in.data()}, target = {frames, out};
            const int32_t status = (*handle)->process(handle, &source, &target);
            const bool works = model.enabled && model.ready && frames != 0;
            Demand(status == (works ? kStatusOk : kStatusNoData), "the status of process");
            Demand(inPlace || std::equal(fed.begin(), fed.end(), in.data()),
                   "the input is only read");
            Demand(works || std::equal(before.begin(), before.end(), out),
                   "refused: nothing written");
            DemandAnswers();
            if (!works || !MemoryWasThere() || model.gate > 1) continue;
            for (const int16_t sample : std::span(out, fed.size()))
                Demand(std::fabs(static_cast<float>(sample)) <= model.gate * 32767 + 1,
                       "no sample above the gate");
        }
    }

    // Looks up descriptors through the entry points themselves instead of the record.
    void LookUp() {
        if (!handle) return;
        effect_descriptor_t listed, found, own;
        uint32_t effects = 0;
        Demand(EffectQueryNumberEffects(&effects) == kStatusOk && effects == 1, "one effect");
        Demand(EffectQueryEffect(0, &listed) == kStatusOk &&
                   EffectGetDescriptor(&kOrvaneUuid, &found) == kStatusOk &&
                   (*handle)->get_descriptor(handle, &own) == kStatusOk &&
                   std::memcmp(&listed, &found, sizeof found) == 0 &&
                   std::memcmp(&listed, &own, sizeof own) == 0,
               "one descriptor, however it is asked for");
        const effect_interface_s& table = **handle;
        int16_t sample[2] = {};
        audio_buffer_s one = {1, sample}, two = {2, sample};
        for (const int32_t status :
             {EffectQueryEffect(0, nullptr), EffectGetDescriptor(nullptr, &found),
              EffectGetDescriptor(&kOrvaneUuid, nullptr), EffectCreate(nullptr, 0, 0, &handle),
              EffectCreate(&kOrvaneUuid, 0, 0, nullptr), EffectRelease(nullptr),
              table.get_descriptor(handle, nullptr), table.process(nullptr, &one, &one),
              table.process(handle, &one, &two), table.process(handle, &one, nullptr),
              table.command(nullptr, 0, 0, nullptr, nullptr, nullptr)})
            Demand(status == kStatusInvalid, "null pointers and unequal buffers are refused");
        Demand(EffectQueryEffect(1, &found) == kStatusNotFound, "query out of range");
        const int version = GetLibraryVersionMain() << 24 | GetLibraryVersionSub() << 16 |
                            GetLibraryVersionExt() << 8 | GetLibraryVersionBuild();
        Demand(version == kLibraryVersionWord && GetLibraryVersionCodename() != nullptr, "version");
        Demand(EffectGetDescriptor(&listed.type, &found) == kStatusNotFound, "other uuid");
    }

    std::optional<ClientInstance> instance;
    effect_handle_t handle = nullptr;  // the instance
    Model model;
    uint64_t refusedBefore = 0;  // allocations refused before the instance was created
    uint32_t noise = 0x2545F491;
    uint32_t framesProcessed = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    allocationToRefuse = clockMs = 0;
    markerIsThere = false;
    std::feclearexcept(FE_ALL_EXCEPT);
    Session session;
    session.Create(0);
    while (!input.Empty()) {
        const unsigned call = input.Take<uint8_t>() % 10;
        if (call == 0) session.Create(input.Take<uint8_t>());
        if (call == 1) session.AnyCommand(input);
        if (call == 2) session.Process(input);
        if (call == 3) session.Release();
        if (call == 4) allocationToRefuse = input.Take<uint8_t>();
        if (call == 5) session.LookUp();
        if (call == 6) session.Configure(input);
        if (call == 7) session.Order(input);
        if (call == 8 || call == 9) session.Parameter(input, call == 8);
    }
    session.Release();
    return 0;
}
