#include "render/audio/tags.h"

#include <taglib/aifffile.h>
#include <taglib/apefile.h>
#include <taglib/apetag.h>
#include <taglib/asffile.h>
#include <taglib/asftag.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/chapterframe.h>
#include <taglib/flacfile.h>
#include <taglib/id3v1tag.h>
#include <taglib/id3v2tag.h>
#include <taglib/infotag.h>
#include <taglib/mp4file.h>
#include <taglib/mpegfile.h>
#include <taglib/opusfile.h>
#include <taglib/vorbisfile.h>
#include <taglib/wavfile.h>
#include <taglib/wavpackfile.h>
#include <taglib/xiphcomment.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>

#include "render/audio/tag_stream.h"
#include "render/failure.h"

namespace {

using TagLib::ByteVector;
using TagLib::FLAC::Picture;
using TagLib::ID3v2::AttachedPictureFrame;

// The largest FLAC metadata block: its size has 24 bits.
constexpr unsigned kMostFlacBlock = 0xFFFFFF;

// The beginning of the names of iTunes' own fields in MPEG-4 files.
const std::string kITunes = "----:com.apple.iTunes:";

constexpr struct {
    int sndfileField;
    const char* name;
} kStrings[] = {{SF_STR_TITLE, "TITLE"},
                {SF_STR_ARTIST, "ARTIST"},
                {SF_STR_ALBUM, "ALBUM"},
                {SF_STR_COMMENT, "COMMENT"},
                {SF_STR_DATE, "DATE"},
                {SF_STR_GENRE, "GENRE"},
                {SF_STR_TRACKNUMBER, "TRACKNUMBER"},
                {SF_STR_COPYRIGHT, "COPYRIGHT"},
                {SF_STR_LICENSE, "LICENSE"}};

// The fields of a WAV file's LIST chunk that libsndfile reads, and ISFT, which names the program.
constexpr const char* kInfoFields[] = {"INAM", "IART", "IPRD", "ICMT", "ICRD",
                                       "IGNR", "ITRK", "IPRT", "ICOP", "ISFT"};

// A file that is open for its tags. xiph and id3 are null if the format has no such tag. If the
// format has one but the file does not, they are null unless `create` was set.
struct TagFile {
    std::unique_ptr<TagLib::File> file;
    TagLib::Ogg::XiphComment* xiph = nullptr;
    TagLib::ID3v2::Tag* id3 = nullptr;
    TagLib::FLAC::File* flac = nullptr;
    std::vector<TagLib::Tag*> others;  // a field in several of them counts once
    TagLib::RIFF::Info::Tag* info = nullptr;
    TagLib::MP4::Tag* mp4 = nullptr;
    const TagLib::MP4::Properties* mp4Sound = nullptr;
    TagLib::ASF::Tag* asf = nullptr;
    std::function<bool()> save;
};

template <typename File, typename... Arguments>
File* Open(TagFile* tags, Arguments... arguments) {
    auto file = std::make_unique<File>(arguments...);
    File* const opened = file->isValid() ? file.get() : nullptr;
    tags->save = [opened] { return opened->save(); };
    tags->file = std::move(file);
    return opened;
}

// Opens the tags of a file that libsndfile does not know.
void OpenForeignTags(TagStream* stream, TagFile* tags) {
    if (TagLib::MP4::File::isSupported(stream)) {
        if (auto* const file = Open<TagLib::MP4::File>(tags, stream, true)) {
            tags->others = {tags->mp4 = file->tag()};
            tags->mp4Sound = file->audioProperties();
        }
    } else if (TagLib::ASF::File::isSupported(stream)) {
        if (auto* const file = Open<TagLib::ASF::File>(tags, stream, false))
            tags->others = {tags->asf = file->tag()};
    } else if (TagLib::APE::File::isSupported(stream)) {
        if (auto* const file = Open<TagLib::APE::File>(tags, stream, false))
            tags->others = {file->tag()};
    } else if (TagLib::WavPack::File::isSupported(stream)) {
        if (auto* const file = Open<TagLib::WavPack::File>(tags, stream, false))
            tags->others = {file->tag()};
    }
}

// Opens the tags of a file. Asks TagLib for audio properties only in MP4 files, where they are read
// anyway. In others it would read much of the file.
void OpenTags(TagStream* stream, int format, bool create, TagFile* tags) {
    auto* const frames = TagLib::ID3v2::FrameFactory::instance();
    switch (format & SF_FORMAT_TYPEMASK) {
        case SF_FORMAT_WAV:
        case SF_FORMAT_WAVEX:
            if (auto* const file = Open<TagLib::RIFF::WAV::File>(tags, stream, false)) {
                tags->id3 = file->ID3v2Tag();
                tags->info = file->InfoTag();
                tags->save = [file] {
                    return file->save(TagLib::RIFF::WAV::File::ID3v2, TagLib::File::StripNone);
                };
            }
            break;
        case SF_FORMAT_AIFF:
            if (auto* const file = Open<TagLib::RIFF::AIFF::File>(tags, stream, false))
                tags->id3 = file->tag();
            break;
        case SF_FORMAT_FLAC:
            if (auto* const file = Open<TagLib::FLAC::File>(tags, stream, frames, false)) {
                tags->flac = file;
                tags->xiph = file->xiphComment(create);
                if (!create) tags->others = {file->ID3v2Tag(), file->ID3v1Tag()};
            }
            break;
        case SF_FORMAT_OGG:
            if ((format & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS) {
                if (auto* const file = Open<TagLib::Ogg::Opus::File>(tags, stream, false))
                    tags->xiph = file->tag();
            } else if (auto* const file = Open<TagLib::Ogg::Vorbis::File>(tags, stream, false)) {
                tags->xiph = file->tag();
            }
            break;
        case SF_FORMAT_MPEG:
            if (auto* const file = Open<TagLib::MPEG::File>(tags, stream, frames, false)) {
                tags->id3 = file->ID3v2Tag(create);
                if (!create) tags->others = {file->APETag(), file->ID3v1Tag()};
            }
            break;
        default:
            if (format == 0) OpenForeignTags(stream, tags);
            break;
    }
}

std::string Utf8(const TagLib::String& text) {
    return text.to8Bit(true);
}

bool StartsWithOneOf(const std::string& name, std::initializer_list<std::string> starts) {
    return std::any_of(starts.begin(), starts.end(),
                       [&name](const std::string& start) { return name.starts_with(start); });
}

bool IsGain(const std::string& name) {
    return StartsWithOneOf(
        name, {"REPLAYGAIN_", "R128_", "RVA2", "RVAD", "COMMENT:ITUNNORM", kITunes + "iTunNORM"});
}

bool IsPicture(const std::string& name) {
    return name == "APIC" || name == "covr" || name == "WM/Picture";
}

// Returns whether a field describes the encoder, its settings or its padding. Such a field is true
// only for the old file.
bool TellsTheEncoder(const std::string& name) {
    return StartsWithOneOf(
        name, {"ENCODER", "ENCODING", "ENCODERSETTINGS", "COMMENT:ITUNSMPB", kITunes + "iTunSMPB",
               "WM/EncodingSettings", "WM/EncodingTime", "WMFSDK"});
}

void Add(const TagLib::PropertyMap& found, AudioTags* tags) {
    for (const auto& [key, values] : found) {
        const std::string name = Utf8(key);
        if (IsGain(name))
            tags->gains.push_back(name);
        else if (!TellsTheEncoder(name) && !tags->fields.contains(key) && !values.isEmpty())
            tags->fields.insert(key, values);
    }
    for (const TagLib::String& key : found.unsupportedData()) {
        const std::string name = Utf8(key);
        if (IsGain(name))
            tags->gains.push_back(name);
        else if (!TellsTheEncoder(name) && !IsPicture(name))
            tags->unread.push_back(name);
    }
}

// Names of frames that point at bytes of the old file, or change the loudness.
constexpr const char* kOfTheOldFile[] = {"ASPI", "MLLT", "RBUF", "SEEK", "EQU2", "EQUA"};

// Creates a frame from its rendered bytes. Returns null if the bytes are not a valid frame.
TagLib::ID3v2::Frame* FrameOf(const ByteVector& bytes) {
    const TagLib::ID3v2::Header version4;
    return TagLib::ID3v2::FrameFactory::instance()->createFrame(bytes, &version4);
}

// Keeps the frames that have no field name.
void ReadFrames(const TagLib::ID3v2::Tag& from, AudioTags* tags) {
    for (TagLib::ID3v2::Frame* frame : from.frameList()) {
        const ByteVector id = frame->frameID();
        const std::string name(id.data(), id.size());
        if (name == "APIC") continue;
        if (auto* const chapter = dynamic_cast<TagLib::ID3v2::ChapterFrame*>(frame)) {
            constexpr unsigned kNone = 0xFFFFFFFF;
            chapter->setStartOffset(kNone);
            chapter->setEndOffset(kNone);
        }
        const ByteVector bytes = frame->render();
        TagLib::ID3v2::Tag alone;
        auto* const copy = FrameOf(bytes);
        if (copy != nullptr) alone.addFrame(copy);
        if (copy != nullptr && alone.properties().unsupportedData().isEmpty()) continue;
        if (IsGain(name))
            tags->gains.push_back(name);
        else if (copy == nullptr || std::find(std::begin(kOfTheOldFile), std::end(kOfTheOldFile),
                                              name) != std::end(kOfTheOldFile))
            tags->unread.push_back(name);
        else
            tags->frames.push_back({name, bytes});
    }
}

// Converts the picture of an ID3 frame or an ASF file. Both number picture types as FLAC does.
template <typename From>
ByteVector AsFlacPicture(const From& from) {
    Picture picture;
    picture.setType(static_cast<Picture::Type>(from.type()));
    picture.setMimeType(from.mimeType());
    picture.setDescription(from.description());
    picture.setData(from.picture());
    return picture.render();
}

// Returns a new frame, which the tag that it is added to owns.
AttachedPictureFrame* AsFrame(const ByteVector& flacPicture) {
    const Picture picture(flacPicture);
    auto* const frame = new AttachedPictureFrame;
    frame->setType(static_cast<AttachedPictureFrame::Type>(picture.type()));
    frame->setMimeType(picture.mimeType());
    frame->setTextEncoding(TagLib::String::UTF8);
    frame->setDescription(picture.description());
    frame->setPicture(picture.data());
    return frame;
}

ByteVector AsFlacPicture(const TagLib::MP4::CoverArt& cover) {
    Picture picture;
    picture.setType(Picture::FrontCover);
    picture.setMimeType(cover.format() == TagLib::MP4::CoverArt::PNG ? "image/png" : "image/jpeg");
    picture.setData(cover.data());
    return picture.render();
}

void ReadForeignPictures(const TagFile& from, AudioTags* tags) {
    if (from.mp4 != nullptr)
        for (const TagLib::MP4::CoverArt& cover : from.mp4->item("covr").toCoverArtList())
            tags->pictures.push_back(AsFlacPicture(cover));
    if (from.asf != nullptr)
        for (const TagLib::ASF::Attribute& attribute : from.asf->attribute("WM/Picture"))
            tags->pictures.push_back(AsFlacPicture(attribute.toPicture()));
}

void ReadPictures(const TagFile& from, AudioTags* tags) {
    ReadForeignPictures(from, tags);
    if (from.flac != nullptr)
        for (const Picture* picture : from.flac->pictureList())
            tags->pictures.push_back(picture->render());
    if (from.xiph != nullptr)
        for (const Picture* picture : from.xiph->pictureList())
            tags->pictures.push_back(picture->render());
    if (from.id3 == nullptr) return;
    for (const TagLib::ID3v2::Frame* frame : from.id3->frameList("APIC"))
        if (const auto* picture = dynamic_cast<const AttachedPictureFrame*>(frame))
            tags->pictures.push_back(AsFlacPicture(*picture));
}

}  // namespace

std::string AudioTags::First(const char* field) const {
    return fields.contains(field) && !fields[field].isEmpty() ? Utf8(fields[field].front()) : "";
}

uint64_t AudioTags::MostBytes() const {
    uint64_t bytes = 1 << 16;  // for headers and padding
    for (const ByteVector& picture : pictures) bytes += 2 * uint64_t{picture.size()};
    for (const auto& [key, values] : fields)
        bytes += 64 + 4 * uint64_t{key.size()} + 4 * uint64_t{values.toString().size()};
    for (const Id3Frame& frame : frames) bytes += frame.bytes.size();
    return bytes + marks.Bytes();
}

std::vector<std::string> AudioTags::Names() const {
    std::vector<std::string> names;
    for (const auto& [key, values] : fields) names.push_back(Utf8(key));
    names.insert(names.end(), pictures.size(), "picture");
    for (const Id3Frame& frame : frames) names.push_back(frame.name);
    return names;
}

AudioTags ReadTags(SNDFILE* file, int fd, int format) {
    AudioTags tags;
    if (fd >= 0) {
        TagStream stream(fd);
        TagFile from;
        try {
            OpenTags(&stream, format, false, &from);
        } catch (const Failure&) {  // from TagStream
            tags.unread.emplace_back("damaged tags");
        }
        tags.isSixteenBitAlac = from.mp4Sound != nullptr && from.mp4Sound->bitsPerSample() == 16 &&
                                from.mp4Sound->codec() == TagLib::MP4::Properties::ALAC;
        if (from.xiph != nullptr) Add(from.xiph->properties(), &tags);
        if (from.id3 != nullptr) {
            TagLib::PropertyMap fields = from.id3->properties();
            fields.unsupportedData().clear();
            Add(fields, &tags);
            ReadFrames(*from.id3, &tags);
        }
        for (const TagLib::Tag* other : from.others)
            if (other != nullptr) Add(other->properties(), &tags);
        ReadPictures(from, &tags);
        tags.marks = ReadMarks(fd);
        SF_INFO info{};
        if (file != nullptr) sf_command(file, SFC_GET_CURRENT_SF_INFO, &info, sizeof info);
        tags.marks.rateHz = static_cast<uint32_t>(info.samplerate);
        if (from.info != nullptr)
            for (const auto& [key, value] : from.info->fieldListMap())
                if (std::find(std::begin(kInfoFields), std::end(kInfoFields),
                              std::string(key.data(), key.size())) == std::end(kInfoFields))
                    tags.unread.emplace_back(key.data(), key.size());
    }
    for (const auto& [field, name] : kStrings)
        if (const char* const text = sf_get_string(file, field); text != nullptr && *text != '\0')
            if (!tags.fields.contains(name))
                tags.fields.insert(name, TagLib::String(text, TagLib::String::UTF8));
    return tags;
}

std::vector<std::string> WriteStrings(SNDFILE* file, const AudioTags& tags) {
    AudioTags rest = tags;
    for (const auto& [field, name] : kStrings)
        if (tags.fields.contains(name) &&
            sf_set_string(file, field, Utf8(tags.fields[name].toString(", ")).c_str()) == 0)
            rest.fields.erase(name);
    return rest.Names();
}

std::vector<std::string> WriteTags(int fd, int format, const AudioTags& tags,
                                   const std::string& name) {
    TagStream stream(fd);
    TagFile to;
    OpenTags(&stream, format, true, &to);
    if (to.xiph == nullptr && to.id3 == nullptr) return tags.Names();
    std::vector<std::string> tooLarge;
    AudioTags refused;
    refused.fields = to.xiph != nullptr ? to.xiph->setProperties(tags.fields)
                                        : to.id3->setProperties(tags.fields);
    for (const ByteVector& picture : tags.pictures) {
        if (to.flac != nullptr && picture.size() > kMostFlacBlock)
            tooLarge.push_back(fmt::format("picture of {} bytes", picture.size()));
        else if (to.flac != nullptr)
            to.flac->addPicture(new Picture(picture));
        else if (to.xiph != nullptr)
            to.xiph->addPicture(new Picture(picture));
        else
            to.id3->addFrame(AsFrame(picture));
    }
    if (to.flac != nullptr && to.xiph->render(false).size() > kMostFlacBlock) {
        to.xiph->setProperties({});
        refused.fields = tags.fields;
    }
    for (const Id3Frame& frame : tags.frames)
        if (to.id3 != nullptr)
            to.id3->addFrame(FrameOf(frame.bytes));
        else
            refused.frames.push_back(frame);
    const bool saved = to.save();
    if (stream.Error() != 0)
        throw Failure("{} cannot be written: {}", name, std::strerror(stream.Error()));
    if (!saved) return tags.Names();
    const std::vector<std::string> names = refused.Names();
    tooLarge.insert(tooLarge.begin(), names.begin(), names.end());
    return tooLarge;
}

void AddFields(int fd, int format, const TagLib::PropertyMap& fields, const std::string& name) {
    TagStream stream(fd);
    TagFile to;
    OpenTags(&stream, format, true, &to);
    if (to.xiph == nullptr && to.id3 == nullptr) return;
    TagLib::PropertyMap all = to.xiph != nullptr ? to.xiph->properties() : to.id3->properties();
    for (const auto& [key, values] : fields) all.replace(key, values);
    to.xiph != nullptr ? to.xiph->setProperties(all) : to.id3->setProperties(all);
    if (!to.save() || stream.Error() != 0)
        throw Failure("{} cannot be written: {}", name, std::strerror(stream.Error()));
}
