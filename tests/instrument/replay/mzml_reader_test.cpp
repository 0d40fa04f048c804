#include "instrument/replay/recording.h"

#include <gmock/gmock.h>
#include <zlib.h>

#include <bit>

#include "instrument/replay/playback.h"
#include "recording_text.h"
#include "support/memory_disk.h"

namespace korvane {

namespace {

using replay::read_recording;
using replay::Recording;
using testing::HasSubstr;

struct MzmlReader : testing::Test {
    Recording read(const std::string& text, const RecordingOptions& options = {}) {
        disk.put(file, text);
        return read_recording(disk, file, options);
    }

    /// The text of the one error that every bad recording ends in.
    std::string fault(const std::string& text) {
        const std::string error = raised([&] { read(text); });
        EXPECT_TRUE(error.starts_with("-904|RecordingReader|recording [" + file + "]")) << error;
        return error;
    }
    std::string fault(const SpectrumText& spectrum) { return fault(recording_text({spectrum})); }

    MemoryDisk disk;
    std::string file = "/recording.mzML";
};

std::string replaced(std::string text, const std::string& old, const std::string& by) {
    const auto at = text.find(old);
    EXPECT_NE(at, std::string::npos) << old;
    return at == std::string::npos ? text : text.replace(at, old.size(), by);
}

TEST_F(MzmlReader, LeavesOutOtherLevelsWithoutDecodingThem) {
    SpectrumText fragments = plain_spectrum();
    fragments.id = "fragments";
    fragments.parameters = R"(<cvParam accession="MS:1000511" value="2"/><cvParam accession="MS:1000127"/>)";
    fragments.array_parameters = R"(<cvParam accession="MS:1002312" name="MS-Numpress linear"/>)";
    const Recording recording = read(recording_text({fragments, plain_spectrum()}));
    ASSERT_EQ(recording.spectra.size(), 1u);
    EXPECT_EQ(recording.spectra[0].id, "scan=1");
    EXPECT_THAT(fault(fragments), HasSubstr("no profile spectrum of MS level 2; centroid"));
}

TEST_F(MzmlReader, NamesWhatIsWrongWithTheFile) {
    EXPECT_THAT(fault(""), HasSubstr("empty"));
    EXPECT_THAT(fault("PK\x03\x04 not a recording"), HasSubstr("not XML"));
    EXPECT_THAT(fault("<mzXML/>"), HasSubstr("root element is [mzXML]"));
    EXPECT_THAT(fault("<indexedmzML><index/></indexedmzML>"), HasSubstr("not mzML"));
    EXPECT_THAT(fault("<mzML/>"), HasSubstr("no spectrum"));
    EXPECT_THAT(fault("<mzML/><mzML/>"), HasSubstr("second root element"));
    EXPECT_THAT(fault("\x1f\x8b\x08 cut off"), HasSubstr("gzip"));
    const std::string whole = recording_text({plain_spectrum()});
    EXPECT_THAT(fault(whole.substr(0, whole.size() - 20)), HasSubstr("not XML"));
    EXPECT_THAT(raised([&] { read_recording(disk, "/none.mzML"); }),
                HasSubstr("-904|RecordingReader|recording [/none.mzML]"));
}

/// A change of the text, the first time that its place occurs; what is told of it, or why the recording is refused.
struct Trait {
    std::string from, to, told;
    bool is_refused = false;
};

std::vector<Trait> traits() {
    const std::string start = R"("MS:1000016" value="1.5" unitAccession="UO:0000031")";
    const std::string level = R"(<cvParam accession="MS:1000511" value="1"/>)", none;
    const std::string length = R"(defaultArrayLength="400")", zlib = R"(<cvParam accession="MS:1000574"/>)";
    const std::string detector = R"(<instrumentConfigurationList><instrumentConfiguration><componentList><detector>
        <cvParam accession="MS:1000029" value="0" unitAccession="UO:0000106"/></detector></componentList>
        </instrumentConfiguration></instrumentConfigurationList>)";
    return {
        {level, none, "MS level not stated: taken as 1"},
        {level, R"(<cvParam accession="MS:1000511" value="3"/>)", ""},
        {R"(<cvParam accession="MS:1000128"/>)", none, "profile or centroid not stated: profiles by their spacing"},
        {R"(<cvParam accession="MS:1000130"/>)", none, "polarity not stated: taken as negative"},
        {start, R"("MS:1000017")", "start time not stated: taken as 0"},
        {start, R"("MS:1000016" value="1.5" unitAccession="UO:0000099")",
         "unit [UO:0000099] of the start time: taken as minutes"},
        {"<binaryDataArray>", "<binaryDataArray encodedLength=\"17\">",
         "encodedLength of an array is not the length of"},
        {"<spectrumList count=\"1\">", "<spectrumList count=\"9\">", "spectrumList count [9] is not the number of its"},
        {"<run", detector + "<run", "sampling frequency [0] is none of a digitiser: taken from the axis"},
        {"<spectrum ", R"(<spectrum id="e" defaultArrayLength="0"/><spectrum )", "empty spectra are passed over"},
        {"value=\"1\"/>", "value=\"one\"/>", "[one] is not a number", true},
        {"MS:1000128", "MS:1000127", "no profile spectrum", true},
        {R"(<cvParam accession="MS:1000130"/>)",
         R"(<cvParam accession="MS:1000130"/><cvParam accession="MS:1000129"/>)", "both polarities", true},
        {start, R"("MS:1000016" value="")", "scan start time [] is not a number", true},
        {length, R"(defaultArrayLength="399")", "3192", true},
        {length, R"(defaultArrayLength="99999999999")", "99999999999", true},
        {length, none, "defaultArrayLength", true},
        {length, R"(defaultArrayLength="0")", "empty", true},
        {"MS:1000514", "MS:1000786", "no m/z array", true},
        {zlib, none, "not the 3200", true},
        {R"(<cvParam accession="MS:1000523"/>)", none, "64-bit float", true},
        {zlib, R"(<cvParam accession="MS:1003780" name="zstd"/>)", "MS:1003780 (zstd)", true},
        {"MS:1000574", "MS:1000576", "not the 3200", true},
        {"MS:1000574", "MS:1002313", "m/z array: ", true},
        {"<binary>", "<binary>*", "cut off", true},
        {"<binary>", "<binary>****", "is not base64", true},
        {"<binary>", "<binary>AAAA", "zlib refuses", true},
        {"<scanList", R"(<referenceableParamGroupRef ref="nowhere"/><scanList)", "[nowhere]", true},
    };
}

/// Two peaks in recordings of every kind: wrapped, of parameter groups, integers, with samples left out, of no
/// time-of-flight analyser.
std::vector<std::string> kinds_of_recordings() {
    SpectrumText plain = plain_spectrum(), grouped = plain, integers = plain, sparse = plain, curved = plain;
    grouped.parameters = R"(<referenceableParamGroupRef ref="g"/>)";
    for (std::size_t i = 0; i < plain.mz.size(); ++i) {
        integers.intensity[i] = std::bit_cast<double>(static_cast<std::int64_t>(plain.intensity[i]));
        sparse.intensity[i] = std::max(0.0, plain.intensity[i] - 30);
        sparse.mz[i] = std::pow(4.5e-4 * (40000.0 + static_cast<double>(i < 200 ? i : i + 500)), 2);
        curved.mz[i] = 400 / std::pow(2 - 1e-3 * static_cast<double>(i), 2);  // even in frequency
    }
    const std::string group = R"(<referenceableParamGroupList><referenceableParamGroup id="g">)" + plain.parameters +
                              "</referenceableParamGroup></referenceableParamGroupList>";
    std::vector<std::string> texts{replaced(replaced(recording_text({plain}), "<mzML", "<indexedmzML><mzML"), "</mzML>",
                                            "</mzML><indexListOffset>1</indexListOffset></indexedmzML>"),
                                   recording_text({grouped}, group)};
    for (const SpectrumText& spectrum : {integers, sparse, curved}) texts.push_back(recording_text({spectrum}));
    texts[2].replace(texts[2].rfind("MS:1000523"), 10, "MS:1000522");
    return texts;
}

TEST_F(MzmlReader, TakesOrRefusesEveryTraitAloneAndInPairsAndSaysWhy) {
    const std::vector<Trait> all = traits();
    int taken = 0, refused = 0;
    const std::vector<std::string> kinds = kinds_of_recordings();
    for (const std::string& kind : kinds)
        for (auto first = all.begin(); first != all.end(); ++first)
            for (auto second = first; second != all.end(); ++second) {
                std::string text = replaced(kind, first->from, first->to);
                if (second != first && text.find(second->from) == std::string::npos) continue;
                if (second != first) text = replaced(text, second->from, second->to);
                SCOPED_TRACE(first->from + " -> " + first->to + " and " + second->from + " -> " + second->to);
                std::string told;
                disk.put(file, text);
                RecordingOptions options{every_ms_level, PolaritySetpoint::Negative, {}};
                options.tell = [&](const std::string& line) { told += line + "|"; };
                int peaks = 0;
                const auto search = [&] {
                    search_profiles(disk, file, options, [&](const SearchedSpectrum& spectrum, auto, auto) {
                        peaks += spectrum.peaks->count();
                    });
                };
                const bool is_refused = first->is_refused || second->is_refused;
                (is_refused ? refused : taken) += 1;
                if (is_refused) {
                    const std::string error = raised(search);
                    ASSERT_TRUE(error.starts_with("-904|RecordingReader|recording [" + file + "]")) << error;
                    EXPECT_TRUE((first->is_refused && error.find(first->told) != std::string::npos) ||
                                (second->is_refused && error.find(second->told) != std::string::npos))
                        << error;
                    continue;
                }
                ASSERT_NO_THROW(search());
                EXPECT_EQ(peaks, 2);
                EXPECT_THAT(told, testing::AllOf(HasSubstr(first->told), HasSubstr(second->told)));
                if (&kind != &kinds.back()) replay::prepare_playback(read(text, options));
            }
    EXPECT_GT(taken, 200);
    EXPECT_GT(refused, 1000);
}

TEST_F(MzmlReader, TellsCentroidsByTheirSpacing) {
    SpectrumText centroids = plain_spectrum();
    for (std::size_t i = 0; i < centroids.mz.size(); ++i)
        centroids.mz[i] += 3.0 * static_cast<double>(i * i % 7 + 7 * i);
    centroids.parameters = R"(<cvParam accession="MS:1000130"/>)";
    EXPECT_THAT(fault(centroids), HasSubstr("centroid spectra, by their spacing"));
}

// Bytes put together by hand from the description of the encodings.
TEST_F(MzmlReader, DecodesNumericCompressionsIntegersAndGzip) {
    using replay::Numpress;
    const auto decoded = [&](const char* text, Numpress numpress, std::size_t count) {
        return replay::decode_numbers(text, {true, false, false, numpress}, count, {file, ""}, "array");
    };
    EXPECT_EQ(decoded("P/AAAAAAAABkAAAAyAAAAHH+", Numpress::linear, 4), (std::vector<double>{100, 200, 301, 400}));
    EXPECT_EQ(decoded("cWkY\n  XCE=", Numpress::positive_integer, 4), (std::vector<double>{1, 25, 0, 300}));
    EXPECT_EQ(decoded("P/AAAAAAAAAAAAEA", Numpress::short_logarithm, 2), (std::vector<double>{0, std::exp(1.0) - 1}));
    EXPECT_EQ(replay::decode_numbers("/v///wMAAAA=", {false, false, true}, 2, {file, ""}, "array"),
              (std::vector<double>{-2, 3}));
    EXPECT_EQ(replay::decode_numbers("AACAPwAAIED5AhVQ", {false, false}, 3, {file, ""}, "array"),
              (std::vector<double>{1, 2.5, 1e10}));
    EXPECT_EQ(replay::decode_numbers("eJxjYAACgUgHEMWQAKU3RDoAABimAuw=", {}, 3, {file, ""}, "array"),
              (std::vector<double>{100.25, 101.5, 102.75}));
    EXPECT_THAT(raised([&] { decoded("P/AAAAAAAABkAAAAyAAAAHH+", Numpress::linear, 5); }),
                HasSubstr("4 numbers, not the 5"));
    EXPECT_THAT(raised([&] { decoded("P/AAAAAA", Numpress::short_logarithm, 1); }), HasSubstr("ends early"));
    const TemporaryFolder folder;
    const gzFile out = gzopen(folder.file("packed").c_str(), "wb");
    gzputs(out, recording_text({plain_spectrum()}).c_str());
    ASSERT_EQ(gzclose(out), Z_OK);
    const std::string packed = read_text(folder.path() / "packed");
    EXPECT_EQ(read(packed).spectra.size(), 1u);
    EXPECT_THAT(fault(packed.substr(0, packed.size() / 2)), HasSubstr("gzip: cut off"));
}

TEST_F(MzmlReader, RefusesNumbersThatAreNoneAndArraysLongerOrShorterThanStated) {
    const double none = std::numeric_limits<double>::quiet_NaN();
    for (const double bad : {none, std::numeric_limits<double>::infinity(), -1.0, 0.0, 1.0}) {
        SpectrumText spectrum = plain_spectrum();
        spectrum.mz[7] = bad;
        EXPECT_THAT(fault(spectrum), HasSubstr("[scan=1]"));
    }
    SpectrumText spectrum = plain_spectrum();
    spectrum.intensity[9] = none;
    EXPECT_THAT(fault(spectrum), HasSubstr("intensity of sample 9"));
    spectrum.intensity.assign(400'000, 0.0);  // few bytes that would unpack to many
    EXPECT_THAT(fault(spectrum), HasSubstr("intensity array: the data do not end with the 3200 bytes"));
    spectrum = plain_spectrum();
    while (replay::encode_numbers(spectrum.intensity, {}).ends_with('=')) {
        spectrum.mz.pop_back();
        spectrum.intensity.pop_back();
    }
    std::string text = recording_text({spectrum});
    text.insert(text.rfind("</binary>"), "AAAA");
    EXPECT_THAT(fault(text), HasSubstr("intensity array: bytes follow"));
}

}  // namespace

}  // namespace korvane
