#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WellFormed.h"
#include "tests/tools/VrxRun.h"

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstring>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sndfile.h>
#include <sstream>
#include <thread>

namespace {

using Strings = std::vector<std::string>;

Strings Joined(Strings left, const Strings& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

std::vector<float> ReadFloats(const std::string& path, SF_INFO& info) {
    info = {};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) return {};
    std::vector<float> samples(static_cast<std::size_t>(info.frames * info.channels));
    EXPECT_EQ(sf_read_float(file, samples.data(), static_cast<sf_count_t>(samples.size())),
              static_cast<sf_count_t>(samples.size()));
    sf_close(file);
    return samples;
}

/// A shared library that is no plug-in.
std::string LibraryOfSndfile() {
    Dl_info info{};
    EXPECT_NE(::dladdr(reinterpret_cast<void*>(&sf_open), &info), 0);
    return info.dli_fname;
}

unsigned WordAt(const std::string& bytes, std::size_t at) {
    unsigned word = 0;
    std::memcpy(&word, bytes.data() + at, 4);
    return word;
}

void AnswerConnect(Peer& peer) {
    EXPECT_EQ(peer.ReadLine(), "connect,127.0.0.1,0\n");
    peer.Send("ok\n");
}

/// Sends a block's words back; the figures are 16 average and 32 pump cycles.
void Echo(Peer& peer, unsigned status) {
    const std::string packet = peer.ReadPacket();
    ASSERT_GE(packet.size(), 20U);
    const unsigned dataWords = WordAt(packet, 8) - 1;
    peer.Send(Words({0x07FF0003, 28 + 4 * dataWords, dataWords + 3, 0x3A, status, 0x1000, 0x2000}) +
              packet.substr(20, std::size_t{4} * dataWords));
}

ScriptedServer::Script EchoBlocks(int count) {
    return [count](Peer& peer) {
        AnswerConnect(peer);
        for (int i = 0; i < count; ++i) Echo(peer, 0);
    };
}

/// With a block of 2 frames and the kind of words given, so that no pins are asked for.
class Pump : public testing::Test {
protected:
    Subprocess::Outcome Run(int port, const Strings& options = {}) {
        return Vrx(Joined(
            {"pump", m_in, m_out, "--servport", std::to_string(port), "--block", "2", "--samples", "f32"},
            options));
    }
    Subprocess::Outcome Run(const ServeProcess& server, const Strings& options = {}) {
        return Vrx(Joined({"pump", m_in, m_out, "--servport", server.Port()}, options));
    }
    bool OutExists() const { return std::filesystem::exists(m_out); }
    /// True when there is the input and nothing beside it, no temporary file either.
    bool OnlyInputLeft() const { return m_folder.Count() == 1 && std::filesystem::exists(m_in); }

    TemporaryFolder m_folder;
    std::string m_in = m_folder.Write("in.wav", Wav16(1, {1000, -1000, 32767, -32768, 7}));
    std::string m_out = m_folder / "out.wav";
};

// ---- what comes out

TEST_F(Pump, KeepsEverySampleThroughAServerThatPassesThem) {
    for (const char* words : {"f32", "s32"})
        for (const unsigned channels : {1U, 2U, 5U}) {
            SCOPED_TRACE(std::string(words) + " " + std::to_string(channels));
            const std::string bytes = Wav16(channels, Noise(std::size_t{channels} * 997));
            m_folder.Write("in.wav", bytes);
            const ServeProcess server({"--samples", words, "--channels", std::to_string(channels)});
            const auto end = Run(server, {"--samples", words, "--force"});
            EXPECT_EQ(end.exitCode, 0) << end.err;
            EXPECT_EQ(end.err, "");
            EXPECT_TRUE(m_folder.Read("out.wav") == bytes) << "the copy differs";
        }
}

TEST_F(Pump, AppliesTheServersGain) {
    const std::vector<int> samples = Noise(1001);
    m_folder.Write("in.wav", Wav16(1, samples));
    for (const char* words : {"f32", "s32"}) {
        SCOPED_TRACE(words);
        const ServeProcess server({"--samples", words, "--channels", "1", "--process", "gain=-6"});
        ASSERT_EQ(Run(server, {"--samples", words, "--force"}).exitCode, 0);
        SF_INFO info;
        const std::vector<float> out = ReadFloats(m_out, info);
        ASSERT_EQ(out.size(), samples.size());
        for (std::size_t i = 0; i < samples.size(); ++i)
            ASSERT_NEAR(static_cast<double>(out[i]) * 32768, samples[i] * 0.501187233627272, 0.501) << i;
    }
}

TEST_F(Pump, ClipsWhatGetsTooLoud) {
    const ServeProcess server({"--channels", "1", "--process", "gain=20"});
    ASSERT_EQ(Run(server, {"--samples", "f32"}).exitCode, 0);
    EXPECT_EQ(m_folder.Read("out.wav"), Wav16(1, {10000, -10000, 32767, -32768, 70}));
}

TEST_F(Pump, TakesTheKindOfWordsFromThePins) {
    const ServeProcess server({"--samples", "s32", "--channels", "1", "--process", "invert"});
    ASSERT_EQ(Run(server).exitCode, 0);
    EXPECT_EQ(m_folder.Read("out.wav"), Wav16(1, {-1000, 1000, -32767, 32767, -7}));
}

TEST_F(Pump, SendsTheTailAsSilence) {
    const ServeProcess server({"--channels", "1", "--process", "delay=3"});
    ASSERT_EQ(Run(server, {"--block", "4", "--samples", "f32", "--tail", "3"}).exitCode, 0);
    EXPECT_EQ(m_folder.Read("out.wav"), Wav16(1, {0, 0, 0, 1000, -1000, 32767, -32768, 7}));
}

TEST_F(Pump, FillsTheLastBlockAndCutsTheOutputToItsLength) {
    ScriptedServer server({[](Peer& peer) {
        AnswerConnect(peer);
        Echo(peer, 0);
        Echo(peer, 0);
        const std::string last = peer.ReadPacket();
        EXPECT_EQ(WordAt(last, 8), 3U) << "two words, although one frame is left";
        EXPECT_EQ(WordAt(last, 24), 0U);
        peer.Send(Words({0x07FF0003, 36, 5, 0x3A, 0, 0, 0, 0x3F000000, 0x3F000000})); // 0.5 twice
    }});
    const auto end = Run(server.Port());
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(m_folder.Read("out.wav"), Wav16(1, {1000, -1000, 32767, -32768, 16384}));
}

TEST_F(Pump, AnEmptyInputGivesAnEmptyOutput) {
    m_folder.Write("in.wav", Wav16(2, {}));
    const ServeProcess server;
    const auto end = Run(server, {"--json"});
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(m_folder.Read("out.wav"), Wav16(2, {}));
    EXPECT_EQ(nlohmann::json::parse(end.out).at("blocks"), 0);
}

TEST_F(Pump, WritesTheKindOfFileThatTheEndingSays) {
    struct Case {
        const char* out;
        const char* bits; // "" for none given
        int format;
    };
    const Case cases[] = {
        {"o.wav", "", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
        {"o.wav", "16", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
        {"o.wav", "32", SF_FORMAT_WAV | SF_FORMAT_PCM_32},
        {"o.wav", "float", SF_FORMAT_WAV | SF_FORMAT_FLOAT},
        {"o.WAV", "", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
        {"o.flac", "", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
        {"o.flac", "32", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
        {"o.aiff", "", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
        {"o.au", "float", SF_FORMAT_AU | SF_FORMAT_FLOAT},
        {"o.caf", "32", SF_FORMAT_CAF | SF_FORMAT_PCM_32},
        {"o.w64", "", SF_FORMAT_W64 | SF_FORMAT_PCM_16},
        {"o.rf64", "", SF_FORMAT_RF64 | SF_FORMAT_PCM_16},
    };
    const ServeProcess server({"--channels", "1"});
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.out) + " " + c.bits);
        m_out = m_folder / c.out;
        const auto end =
            Run(server, *c.bits != '\0' ? Strings{"--force", "--bits", c.bits} : Strings{"--force"});
        EXPECT_EQ(end.exitCode, 0) << end.err;
        SF_INFO info;
        const std::vector<float> want{1000 / 32768.0F, -1000 / 32768.0F, 32767 / 32768.0F, -1, 7 / 32768.0F};
        EXPECT_EQ(ReadFloats(m_out, info), want);
        EXPECT_EQ(info.format & (SF_FORMAT_TYPEMASK | SF_FORMAT_SUBMASK), c.format);
        EXPECT_EQ(info.samplerate, 8000);
    }
}

TEST_F(Pump, ReadsAFloatFileAndWrites32BitsByDefault) {
    SF_INFO info{};
    info.channels = 1;
    info.samplerate = 8000;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open(m_in.c_str(), SFM_WRITE, &info);
    const float samples[] = {0.5F, -0.25F, 1.5F};
    sf_write_float(file, samples, 3);
    sf_close(file);

    for (const char* words : {"f32", "s32"}) {
        SCOPED_TRACE(words);
        const ServeProcess server({"--samples", words, "--channels", "1"});
        ASSERT_EQ(Run(server, {"--samples", words, "--force"}).exitCode, 0);
        SF_INFO written;
        const std::vector<float> out = ReadFloats(m_out, written);
        EXPECT_EQ(written.format & SF_FORMAT_SUBMASK, SF_FORMAT_PCM_32);
        EXPECT_EQ(out, (std::vector<float>{0.5F, -0.25F, 1.0F})) << "2^31 - 1 is 1.0 as a float";
    }
}

TEST_F(Pump, KeepsItsFilesApart) {
    const ServeProcess server({"--channels", "1"});
    const std::string input = m_folder.Read("in.wav");
    std::filesystem::create_hard_link(m_in, m_folder / "hard.wav");
    std::filesystem::create_symlink("in.wav", m_folder / "soft.wav");
    std::filesystem::create_symlink("new.wav", m_folder / "dangling.wav");
    struct Case {
        const char* what;
        Strings arguments;
        const char* names;
    };
    const std::string out = m_folder / "new.wav";
    const Case cases[] = {
        {"IN as OUT", {m_in, m_in}, "IN and OUT"},
        {"IN as the report", {m_in, out, "--report", m_in}, "IN and --report"},
        {"IN as the CSV", {m_in, out, "--csv", m_in}, "IN and --csv"},
        {"another spelling", {m_in, out, "--csv", m_folder / "./in.wav"}, "IN and --csv"},
        {"a hard link", {m_in, out, "--report", m_folder / "hard.wav"}, "IN and --report"},
        {"a symbolic link", {m_in, out, "--report", m_folder / "soft.wav"}, "IN and --report"},
        {"OUT as the report", {m_in, out, "--report", out}, "OUT and --report"},
        {"a link to OUT that is not there yet",
         {m_in, out, "--csv", m_folder / "dangling.wav"},
         "OUT and --csv"},
        {"report and CSV",
         {m_in, out, "--csv", m_folder / "x", "--report", m_folder / "x"},
         "--report and --csv"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const auto end = Vrx(Joined({"pump", "--force", "--servport", server.Port()}, c.arguments));
        EXPECT_EQ(end.exitCode, 1);
        EXPECT_TRUE(IsOneLine(end.err)) << end.err;
        EXPECT_EQ(end.err.rfind(std::string("vrx pump: ") + c.names + " name the same file (", 0), 0U)
            << end.err;
        EXPECT_EQ(m_folder.Read("in.wav"), input);
        EXPECT_FALSE(std::filesystem::exists(out));
    }
}

TEST_F(Pump, ReplacesWhatALinkPointsTo) {
    const ServeProcess server({"--channels", "1"});
    m_folder.Write("target.wav", "old");
    std::filesystem::create_symlink("target.wav", m_out);
    EXPECT_EQ(Run(server, {"--force"}).exitCode, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(m_out));
    EXPECT_EQ(m_folder.Read("target.wav"), m_folder.Read("in.wav"));
}

TEST_F(Pump, WritesNamesLongerThan255Characters) {
    const std::filesystem::path deep =
        m_folder.Path() / std::string(120, 'a') / std::string(120, 'b') / std::string(120, 'c');
    std::filesystem::create_directories(deep);
    m_out = (deep / "out.wav").string();
    const ServeProcess server({"--channels", "1"});
    const auto end = Run(server);
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(std::filesystem::file_size(m_out), 54U);
}

// ---- block sizes

TEST_F(Pump, TakesTheBlockFromThePinsElseFromTheSegment) {
    m_folder.Write("in.wav", Wav16(2, Noise(2000)));
    struct Case {
        Strings serve;
        Strings pump;
        int want;
    };
    const Case cases[] = {
        {{}, {}, 175},
        {{"--pin-frames", "64"}, {}, 64},
        {{"--pin-frames", "64"}, {"--block", "100"}, 100},
        {{"--pin-frames", "131071"}, {}, 131071}, // 262142 words do not fit, see below
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        const ServeProcess server(cases[i].serve);
        const auto end = Run(server, Joined(cases[i].pump, {"--json", "--force"}));
        ASSERT_EQ(end.exitCode, 0) << end.err;
        // A reply of 131071 frames of two channels is longer than the talker's receive buffer.
        const int want = cases[i].want == 131071 ? 175 : cases[i].want;
        EXPECT_EQ(nlohmann::json::parse(end.out).at("block_frames"), want);
    }
}

TEST_F(Pump, RefusesABlockThatNoReplyCanHold) {
    const ServeProcess server({"--channels", "1"});
    const auto end = Run(server, {"--block", "262138"});
    EXPECT_EQ(end.exitCode, 1);
    EXPECT_EQ(end.err,
              "vrx pump: --block 262138 is too long: replies hold at most 262137 frames of 1 channel\n");
    EXPECT_TRUE(OnlyInputLeft());
}

// ---- the summary

/// The lines without their line feeds.
Strings Lines(const std::string& text) {
    Strings lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

TEST_F(Pump, SumsUpInShortLines) {
    ScriptedServer server({EchoBlocks(3)});
    const auto end = Run(server.Port());
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(end.err, "");
    const Strings lines = Lines(end.out);
    ASSERT_EQ(lines.size(), 5U) << end.out;
    EXPECT_EQ(lines[0], m_in + " -> " + m_out);
    EXPECT_EQ(lines[1], "  3 blocks of 2 frames (1 channel at 8000 Hz) through 127.0.0.1:" +
                            std::to_string(server.Port()));
    EXPECT_EQ(lines[2].rfind("  5 frames, 0 failed, 0 retried, ", 0), 0U) << lines[2];
    EXPECT_TRUE(lines[2].ends_with(" times real time")) << lines[2];
    EXPECT_EQ(lines[3].rfind("  round trip p50 ", 0), 0U) << lines[3];
    for (const char* figure : {" ms, p95 ", " ms, p99 ", " ms, max "})
        EXPECT_NE(lines[3].find(figure), std::string::npos) << figure;
    EXPECT_EQ(lines[4], "  cycles 16 average, 32 pump");
}

TEST_F(Pump, SumsUpLongAndOddNamesInShortLinesToo) {
    const ServeProcess server({"--channels", "1"});
    m_in = m_folder.Write(std::string(120, 'i') + "\033[31m.wav", Wav16(1, {1}));
    m_out = m_folder / (std::string(120, 'o') + ".wav");
    const auto end = Run(server);
    EXPECT_EQ(end.exitCode, 0) << end.err;
    for (const std::string& line : Lines(end.out)) EXPECT_LE(line.size(), 100U) << line;
    EXPECT_NE(end.out.find("i?[31m.wav -> ..."), std::string::npos) << end.out;
    EXPECT_EQ(end.out.find('\033'), std::string::npos);
}

// ---- pipes

/// What a shell makes of this, with `vrx` for the program.
Subprocess::Outcome Shell(const std::string& command) {
    return RunProgram({"sh", "-c", "vrx() { " VRX_PROGRAM " \"$@\"; }; " + command});
}

TEST_F(Pump, ReadsStandardInputAndWritesStandardOutput) {
    const ServeProcess server({"--channels", "1"});
    const auto end = Shell("cat " + m_in + " | vrx pump - - --servport " + server.Port() + " >" + m_out);
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(end.out, "");
    EXPECT_EQ(end.err.rfind("- -> -\n  1 block of ", 0), 0U) << end.err;
    const std::string in = m_folder.Read("in.wav");
    const std::string unknown = "\xFF\xFF\xFF\xFF";
    EXPECT_EQ(m_folder.Read("out.wav"),
              in.substr(0, 4) + unknown + in.substr(8, 32) + unknown + in.substr(44));
}

TEST_F(Pump, PassesItsJsonBesideThePipe) {
    const ServeProcess server({"--channels", "1"});
    const auto end = Shell("vrx pump " + m_in + " - --json --servport " + server.Port() + " >" + m_out);
    EXPECT_EQ(end.exitCode, 0);
    EXPECT_EQ(nlohmann::json::parse(end.err).at("output"), "-");
}

TEST_F(Pump, FeedsItselfThroughAPipe) {
    const ServeProcess server({"--channels", "1", "--process", "invert"});
    const std::string port = " --servport " + server.Port();
    for (const char* bits : {"16", "32", "float"}) {
        SCOPED_TRACE(bits);
        const auto end = Shell("vrx pump " + m_in + " - --bits " + bits + port +
                               " 2>/dev/null | vrx pump - " + m_out + " --force --bits 16" + port);
        EXPECT_EQ(end.exitCode, 0) << end.err;
        // Inverted twice; the smallest sample has no inverse in 16 bits, and was clipped on the way.
        const int smallest = std::string(bits) == "16" ? -32767 : -32768;
        EXPECT_EQ(m_folder.Read("out.wav"), Wav16(1, {1000, -1000, 32767, smallest, 7}));
    }
}

TEST_F(Pump, AnswersABlockBeforeTheNextOneComes) {
    // The server sees one block of what the pipe holds so far, while the pipe stays open.
    const ServeProcess server({"--channels", "1"});
    const auto end =
        Shell("mkfifo " + m_folder / "in" + " " + m_folder / "out" + "; " +
              "vrx pump - - --block 2 --servport " + server.Port() + " <" + m_folder / "in" + " >" +
              m_folder / "out" + " 2>/dev/null & exec 3>" + m_folder / "in" + " 4<" + m_folder / "out" +
              "; head -c 48 " + m_in + " >&3; head -c 48 <&4 | tail -c 4 | od -An -td2; exec 3>&-; wait");
    EXPECT_EQ(end.out, "   1000  -1000\n") << end.err;
}

TEST_F(Pump, EndsWhenNobodyReadsItsOutput) {
    const ServeProcess server({"--channels", "1"});
    m_folder.Write("in.wav", Wav16(1, Noise(200000)));
    const auto end = Shell("{ vrx pump " + m_in + " - --servport " + server.Port() +
                           "; echo $? >&2; } | head -c 1000 >/dev/null");
    EXPECT_NE(end.err.find("vrx pump: standard output: cannot be written after frame "), std::string::npos)
        << end.err;
    EXPECT_TRUE(end.err.ends_with("; standard output ends here\n2\n")) << end.err;
}

TEST_F(Pump, RefusesATerminalForAudio) {
    const auto in =
        RunProgram({"script", "-qec", VRX_PROGRAM " pump - " + m_out + " --servport 1", "/dev/null"});
    EXPECT_NE(in.out.find("vrx pump: IN is a terminal: "), std::string::npos) << in.out;
    const auto out =
        RunProgram({"script", "-qec", VRX_PROGRAM " pump " + m_in + " - --servport 1", "/dev/null"});
    EXPECT_NE(out.out.find("vrx pump: OUT is a terminal: "), std::string::npos) << out.out;
}

// ---- how replies are taken

TEST_F(Pump, TakesWholeRepliesThatComeInPieces) {
    m_folder.Write("in.wav", Wav16(2, Noise(20000)));
    const ServeProcess server({"--faults", "pieces=700"});
    for (const char* replies : {"auto", "whole"}) {
        SCOPED_TRACE(replies);
        const auto end = Run(server, {"--block", "1020", "--replies", replies, "--force", "--json"});
        EXPECT_EQ(end.exitCode, 0) << end.err;
        EXPECT_EQ(m_folder.Read("out.wav"), m_folder.Read("in.wav"));
        EXPECT_EQ(nlohmann::json::parse(end.out).at("replies"), "whole");
    }
    const auto single = Run(server, {"--block", "1020", "--replies", "single", "--force", "--retries", "0"});
    EXPECT_FALSE(single.exitCode == 0 && m_folder.Read("out.wav") == m_folder.Read("in.wav"))
        << "what one receive delivers is a piece";
}

TEST_F(Pump, TakesSingleRepliesWhereTheyFitOrNothingElseHoldsThem) {
    const ServeProcess server({"--channels", "1"});
    const struct {
        const char* block;
        const char* replies;
    } kRows[] = {{"358", "single"}, {"359", "whole"}, {"2040", "whole"}, {"2041", "single"}};
    for (const auto& row : kRows) {
        const auto end = Run(server, {"--block", row.block, "--force", "--json"});
        EXPECT_EQ(nlohmann::json::parse(end.out).at("replies"), row.replies) << row.block;
    }
}

TEST_F(Pump, AsksForWholeRepliesAsTheTalkerKnowsThem) {
    ScriptedServer server({[](Peer& peer) {
        for (int i = 0; i < 2; ++i) AnswerConnect(peer); // the second one changes the port's sign
        const std::string packet = peer.ReadPacket();
        EXPECT_EQ(WordAt(packet, 8), 3U) << "two words of data";
        EXPECT_EQ(WordAt(packet, 16), 2043U);
        peer.Send(Words({0x07FF0003, 8188, 2043, 0x3A, 0, 0, 0}) + packet.substr(20, 8));
        peer.Send(std::string(8188 - 36, '\0'));
    }});
    m_folder.Write("in.wav", Wav16(1, {5, -6}));
    const auto end = Run(server.Port(), {"--replies", "whole"});
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(m_folder.Read("out.wav"), m_folder.Read("in.wav"));
}

TEST_F(Pump, RefusesWholeRepliesThatCannotHoldABlock) {
    const ServeProcess server({"--channels", "1"});
    const auto end = Run(server, {"--replies", "whole", "--block", "2041"});
    EXPECT_EQ(end.exitCode, 1);
    EXPECT_EQ(end.err,
              "vrx pump: --replies whole: a whole reply holds 2040 words, and a block has 2041: choose a "
              "smaller --block\n");
}

TEST_F(Pump, PrintsTheSameFactsAsJson) {
    ScriptedServer server({EchoBlocks(3)});
    const auto end = Run(server.Port(), {"--json", "--tail", "1"});
    EXPECT_EQ(end.exitCode, 0) << end.err;
    ASSERT_TRUE(IsOneLine(end.out)) << end.out;
    const auto object = nlohmann::json::parse(end.out);
    EXPECT_EQ(object.at("input"), m_in);
    EXPECT_EQ(object.at("output"), m_out);
    EXPECT_EQ(object.at("server"), "127.0.0.1");
    EXPECT_EQ(object.at("port"), server.Port());
    EXPECT_EQ(object.at("blocks"), 3);
    EXPECT_EQ(object.at("block_frames"), 2);
    EXPECT_EQ(object.at("frames"), 6);
    EXPECT_EQ(object.at("failed"), 0);
    EXPECT_EQ(object.at("retried"), 0);
    EXPECT_EQ(object.at("channels"), 1);
    EXPECT_EQ(object.at("sample_rate"), 8000);
    EXPECT_EQ(object.at("cycles").at("average"), 16);
    EXPECT_EQ(object.at("cycles").at("pump"), 32);
    EXPECT_GT(object.at("realtime_factor"), 0);
    const auto& times = object.at("milliseconds");
    EXPECT_GT(times.at("p50"), 0);
    EXPECT_LE(times.at("p50"), times.at("p95"));
    EXPECT_LE(times.at("p95"), times.at("p99"));
    EXPECT_LE(times.at("p99"), times.at("max"));
}

TEST_F(Pump, ShowsItsProgressOnATerminalOnly) {
    const ServeProcess server({"--channels", "1"});
    EXPECT_EQ(Run(server).err, "");
    const auto end = RunProgram(
        {"script", "-qec",
         std::string(VRX_PROGRAM " pump ") + m_in + " " + m_out + " --force --servport " + server.Port(),
         "/dev/null"});
    EXPECT_EQ(end.exitCode, 0);
    EXPECT_EQ(end.out.rfind("\r100 %, ", 0), 0U) << end.out;
    EXPECT_NE(end.out.find(" times real time, 0:00 left\033[K\r\033[K" + m_in + " -> "), std::string::npos)
        << end.out;
}

// ---- paced, and what is left beside the output

/// The fields of a CSV file's rows, its line of names left out.
std::vector<std::vector<double>> CsvRows(const std::string& text) {
    std::vector<std::vector<double>> rows;
    std::istringstream lines(text);
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line)) {
        rows.emplace_back();
        std::istringstream fields(line);
        for (std::string field; std::getline(fields, field, ',');) rows.back().push_back(std::stod(field));
    }
    return rows;
}

TEST_F(Pump, PacedSendsEachBlockWhenItIsDue) {
    ScriptedServer server({EchoBlocks(3)});
    const auto end = Run(server.Port(), {"--paced", "--json", "--csv", m_folder / "blocks.csv"});
    EXPECT_EQ(end.exitCode, 0) << end.err;
    const auto object = nlohmann::json::parse(end.out);
    EXPECT_EQ(object.at("paced"), true);
    EXPECT_EQ(object.at("deadline_milliseconds"), 0.25);
    EXPECT_LE(object.at("milliseconds_since_due").at("p50"), object.at("milliseconds_since_due").at("max"));
    const auto rows = CsvRows(m_folder.Read("blocks.csv"));
    ASSERT_EQ(rows.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(rows[i][0], static_cast<double>(i + 1));
        EXPECT_NEAR(rows[i][1] - rows[0][1], static_cast<double>(i) * 0.00025, 2e-6) << "2 frames at 8000 Hz";
        EXPECT_GE(rows[i][2], rows[i][1]) << "never sent early";
        EXPECT_NEAR(rows[i][4], (rows[i][2] - rows[i][1]) * 1000 + rows[i][3], 0.002);
    }
    EXPECT_EQ(m_folder.Read("out.wav"), m_folder.Read("in.wav"));
}

TEST_F(Pump, PacedAStallMakesTheFollowingBlocksLate) {
    // Blocks of 200 ms; the reply to the first comes after 700 ms. The next two were due at 200 and 400.
    m_folder.Write("in.wav", Wav16(1, Noise(1600 * 3)));
    const ServeProcess server({"--channels", "1", "--faults", "late=700ms", "--fault-limit", "1"});
    const auto end = Run(server, {"--paced", "--block", "1600", "--csv", m_folder / "blocks.csv"});
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_NE(end.out.find(" 0 retried, 3 missed (longest run 3), "), std::string::npos) << end.out;
    const auto rows = CsvRows(m_folder.Read("blocks.csv"));
    ASSERT_EQ(rows.size(), 3U);
    const double leastLate[] = {700, 500, 300};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_GE(rows[i][4], leastLate[i]);
        EXPECT_EQ(rows[i][5], 1);
    }
}

TEST_F(Pump, LeavesAReportOfTheRun) {
    const ServeProcess server({"--channels", "1", "--pin-frames", "2"});
    const auto end = Run(server, {"--report", m_folder / "run.html"});
    EXPECT_EQ(end.exitCode, 0) << end.err;
    const std::string page = m_folder.Read("run.html");
    EXPECT_EQ(WhyNotWellFormed(page), "");
    for (const std::string& text :
         Strings{"All 3 blocks came back.", "127.0.0.1:" + server.Port(), "<td>2 1 1</td>",
                 "2 frames, 0.25 ms", "vrx 1.0.0, plug-in ", "libVRX_talker_norvo.so.1.0.0"})
        EXPECT_NE(page.find(text), std::string::npos) << text;
}

TEST_F(Pump, ReportsARunThatEndedEarlyToo) {
    ScriptedServer server({EchoBlocks(1)});
    const auto end = Run(server.Port(), {"--retries", "0", "--report", m_folder / "run.html", "--csv",
                                         m_folder / "blocks.csv"});
    EXPECT_EQ(end.exitCode, 4);
    EXPECT_FALSE(OutExists());
    const std::string page = m_folder.Read("run.html");
    EXPECT_EQ(WhyNotWellFormed(page), "");
    EXPECT_NE(page.find("The run ended early: "), std::string::npos);
}

TEST_F(Pump, LeavesNoFileBesideTheOutputUnasked) {
    const ServeProcess server({"--channels", "1"});
    m_folder.Write("taken.html", "precious");
    for (const char* option : {"--report", "--csv"}) {
        SCOPED_TRACE(option);
        const auto taken = Run(server, {option, m_folder / "taken.html"});
        EXPECT_EQ(taken.exitCode, 2);
        EXPECT_EQ(taken.err, "vrx pump: " + m_folder / "taken.html" +
                                 ": exists already: choose another name, or overwrite it with --force\n");
        EXPECT_EQ(m_folder.Read("taken.html"), "precious");
        const auto same = Run(server, {option, m_out});
        EXPECT_EQ(same.exitCode, 1);
        EXPECT_TRUE(IsOneLine(same.err)) << same.err;
        const auto nowhere = Run(server, {option, m_folder / "no/such/folder/x"});
        EXPECT_EQ(nowhere.exitCode, 2);
        EXPECT_NE(nowhere.err.find("cannot be created: No such file or directory"), std::string::npos);
        EXPECT_FALSE(OutExists());
    }
}

TEST_F(Pump, ReportsAFullDiskUnderTheReport) {
    const ServeProcess server({"--channels", "1"});
    for (const char* option : {"--report", "--csv"}) {
        const auto end = Run(server, {"--force", option, "/dev/full"});
        EXPECT_EQ(end.exitCode, 2);
        EXPECT_EQ(end.err, "vrx pump: /dev/full: cannot be written: is the disk full?\n");
    }
}

TEST_F(Pump, SaysForWhomAndForWhatItWaited) {
    ScriptedServer server({[](Peer& peer) {
        AnswerConnect(peer);
        Echo(peer, 0);
        peer.ReadPacket(); // and never an answer
        peer.WaitForClose();
    }});
    const auto end = Run(server.Port(), {"--retries", "0"});
    EXPECT_EQ(end.exitCode, 4);
    const std::string place = "127.0.0.1:" + std::to_string(server.Port());
    EXPECT_EQ(
        end.err.rfind("vrx pump: block 2 failed at " + place + " after 0 retries (result -9999: waited ", 0),
        0U)
        << end.err;
    EXPECT_NE(end.err.find(" s for " + place + " to reply to the block): "), std::string::npos) << end.err;
}

// ---- every way to name the server

TEST_F(Pump, TellsTheServerWhatTheOptionsSay) {
    const auto script = [](Peer& peer) {
        EXPECT_EQ(peer.ReadLine(), "connect,localhost,-7\n");
        peer.Send("ok\n");
        const std::string packet = peer.ReadPacket();
        EXPECT_EQ(packet.substr(28), std::string("L1,Mic.samples[0],Mon.samples[0]\0\0\0\0", 36));
        peer.Send(Words({0x07FF0003, 36, 5, 0x3A, 0, 0, 0, 0, 0}));
        for (int block = 1; block < 3; ++block) Echo(peer, 0);
    };
    ScriptedServer server({script, script});
    const std::string port = std::to_string(server.Port());
    const auto single = Run(server.Port(), {"--server", "localhost", "--clport", "-7", "--input", "Mic",
                                            "--output", "Mon", "--layout", "L1"});
    EXPECT_EQ(single.exitCode, 0) << single.err;
    const auto whole =
        Vrx({"pump", m_in, m_out, "--force", "--block", "2", "--samples", "f32", "--args",
             "layout=L1,output=Mon,input=Mic,clport=-7,servport=" + port + ",server=localhost"});
    EXPECT_EQ(whole.exitCode, 0) << whole.err;
    EXPECT_NE(whole.out.find("through localhost:" + port), std::string::npos) << whole.out;
}

TEST_F(Pump, LoadsTheNamedPlugin) {
    const ServeProcess server({"--channels", "1"});
    EXPECT_EQ(Run(server, {"--plugin", VRX_PLUGIN}).exitCode, 0);
    EXPECT_EQ(m_folder.Read("out.wav"), m_folder.Read("in.wav"));
}

// ---- wrong usage, files, connections

TEST_F(Pump, RefusesWrongUsage) {
    const Strings cases[] = {
        {},
        {"no-such-command"},
        {"pump"},
        {"pump", m_in},
        {"pump", m_in, m_out}, // no port
        {"pump", m_in, m_out, "third", "--servport", "7000"},
        {"pump", m_in, m_out, "--servport", "0"},
        {"pump", m_in, m_out, "--servport", "65536"},
        {"pump", m_in, m_out, "--servport", "x"},
        {"pump", m_in, m_out, "--servport", "7000", "--block", "0"},
        {"pump", m_in, m_out, "--servport", "7000", "--samples", "f64"},
        {"pump", m_in, m_out, "--servport", "7000", "--bits", "24"},
        {"pump", m_in, m_out, "--servport", "7000", "--replies", "double"},
        {"pump", m_in, m_out, "--servport", "7000", "--tail", "-1"},
        {"pump", m_in, m_out, "--servport", "7000", "--retries", "-1"},
        {"pump", m_in, m_out, "--servport", "7000", "--input", "a,b"},
        {"pump", m_in, m_out, "--servport", "7000", "--unknown"},
        {"pump", m_in, m_out, "--args", "server=a,servport=1"},
        {"pump", m_in, m_out, "--args", "server=a", "--servport", "7000"},
    };
    for (const auto& arguments : cases) {
        std::string shown;
        for (const std::string& argument : arguments) shown += argument + " ";
        SCOPED_TRACE(shown);
        const auto end = Vrx(arguments);
        EXPECT_EQ(end.exitCode, 1);
        EXPECT_TRUE(IsOneLine(end.err)) << end.err;
        EXPECT_EQ(end.out, "");
    }
    EXPECT_TRUE(OnlyInputLeft());
}

TEST_F(Pump, ReportsFilesItCannotUse) {
    const std::string text = m_folder.Write("text.wav", "no sound at all\n");
    const std::string taken = m_folder.Write("taken.wav", "precious");
    struct Case {
        const char* name;
        Strings arguments;
        const char* want;
    };
    const Case cases[] = {
        {"no input", {m_folder / "none.wav", m_out}, "none.wav: cannot be read: No such file or directory"},
        {"a folder", {m_folder / ".", m_out}, "cannot be read as audio"},
        {"no audio", {text, m_out}, "text.wav: cannot be read as audio"},
        {"a line feed in the name", {m_folder / "a\nb", m_out}, "a?b: cannot be read"},
        {"taken output",
         {m_in, taken},
         "taken.wav: exists already: choose another name, or overwrite it with --force"},
        {"output is a folder", {m_in, m_folder / "folder.wav", "--force"}, "is no ordinary file"},
        {"output is a device", {m_in, m_folder / "null.wav", "--force"}, "is no ordinary file"},
        {"no known ending", {m_in, m_folder / "out.txt"}, "out.txt: the ending says no known kind of file"},
        {"no ending", {m_in, m_folder / "out"}, "the ending says no known kind of file"},
        {"bits that the kind has not",
         {m_in, m_folder / "out.flac", "--bits", "float"},
         "out.flac: this kind of file"},
        {"longer than 2 GiB",
         {m_in, m_out, "--tail", "2000000000"},
         "out.wav: would be longer than the 2 GiB"},
        {"no such plug-in", {m_in, m_out, "--plugin", m_folder / "none.so"}, "cannot load the plug-in"},
        {"no library", {m_in, m_out, "--plugin", text}, "cannot load the plug-in"},
        {"no talker",
         {m_in, m_out, "--plugin", LibraryOfSndfile()},
         "is no talker plug-in: it has no TalkerFactory()"},
    };
    std::filesystem::create_directory(m_folder / "folder.wav");
    std::filesystem::create_symlink("/dev/null", m_folder / "null.wav");
    const std::size_t before = m_folder.Count();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const auto end = Vrx(Joined({"pump", "--servport", "1"}, c.arguments));
        EXPECT_EQ(end.exitCode, 2) << end.err;
        EXPECT_TRUE(IsOneLine(end.err)) << end.err;
        EXPECT_EQ(end.err.rfind("vrx pump: ", 0), 0U) << end.err;
        EXPECT_NE(end.err.find(c.want), std::string::npos) << end.err;
        EXPECT_EQ(end.out, "");
    }
    EXPECT_EQ(m_folder.Count(), before);
    EXPECT_EQ(m_folder.Read("taken.wav"), "precious");
}

TEST_F(Pump, ReportsAnOutputFolderThatIsNotThere) {
    const ServeProcess server;
    m_out = m_folder / "no/such/folder/out.wav";
    const auto end = Run(server);
    EXPECT_EQ(end.exitCode, 2);
    EXPECT_EQ(end.err, "vrx pump: " + m_out + ": cannot be created: No such file or directory\n");
}

TEST_F(Pump, SurvivesDamagedFiles) {
    const std::string good = Wav16(2, Noise(600));
    Strings files{"", std::string(1000, '\0'), std::string(1000, '\xFF')};
    for (std::size_t length = 1; length <= 48; ++length) files.push_back(good.substr(0, length));
    for (const std::size_t at : {4U, 16U, 20U, 22U, 23U, 24U, 27U, 28U, 32U, 34U, 40U, 43U})
        for (const char byte : {'\0', '\x7F', '\xFF'}) {
            files.push_back(good);
            files.back()[at] = byte;
        }
    const ServeProcess server;
    for (std::size_t i = 0; i < files.size(); ++i) {
        SCOPED_TRACE(i);
        m_folder.Write("in.wav", files[i]);
        const auto end = Run(server, {"--block", "100"});
        EXPECT_EQ(end.signal, 0);
        if (end.exitCode == 0) { // the library made sense of it
            EXPECT_TRUE(std::filesystem::remove(m_out));
            continue;
        }
        EXPECT_TRUE(end.exitCode == 2 || end.exitCode == 1) << end.exitCode;
        EXPECT_TRUE(IsOneLine(end.err)) << end.err;
        EXPECT_TRUE(OnlyInputLeft());
    }
}

TEST_F(Pump, ReportsWhereAFileIsDamaged) {
    SF_INFO info{};
    info.channels = 1;
    info.samplerate = 8000;
    info.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
    m_in = m_folder / "in.flac";
    std::filesystem::remove(m_folder / "in.wav");
    SNDFILE* file = sf_open(m_in.c_str(), SFM_WRITE, &info);
    const std::vector<int> noise = Noise(100000);
    sf_write_int(file, noise.data(), 100000);
    sf_close(file);
    std::string bytes = m_folder.Read("in.flac");
    bytes.resize(bytes.size() / 2);
    m_folder.Write("in.flac", bytes);

    const ServeProcess server;
    const auto end = Run(server);
    EXPECT_EQ(end.exitCode, 2) << end.err;
    EXPECT_TRUE(IsOneLine(end.err)) << end.err;
    EXPECT_NE(end.err.find("in.flac"), std::string::npos) << end.err;
    EXPECT_TRUE(OnlyInputLeft());
}

TEST_F(Pump, ReportsAFullDisk) {
    // A file that may not grow stands for the disk; a write beyond the limit fails as on a full one.
    const ServeProcess server({"--channels", "1"});
    m_folder.Write("in.wav", Wav16(1, Noise(100000)));
    for (const char* ending : {"wav", "w64"}) {
        SCOPED_TRACE(ending);
        m_out = m_folder / "out." + ending;
        const auto end = RunProgram({"sh", "-c", "trap '' XFSZ; ulimit -f 20; exec \"$@\"", "sh", VRX_PROGRAM,
                                     "pump", m_in, m_out, "--servport", server.Port()});
        EXPECT_EQ(end.exitCode, 2) << end.err;
        EXPECT_TRUE(IsOneLine(end.err)) << end.err;
        EXPECT_NE(end.err.find("is the disk full?"), std::string::npos) << end.err;
        EXPECT_TRUE(OnlyInputLeft());
    }
}

TEST_F(Pump, ReportsAStandardOutputThatTakesNothing) {
    const ServeProcess server({"--channels", "1"});
    const auto end = RunProgram({"sh", "-c", "exec \"$@\" >/dev/full", "sh", VRX_PROGRAM, "pump", m_in, m_out,
                                 "--servport", server.Port()});
    EXPECT_EQ(end.exitCode, 2);
    EXPECT_EQ(end.err, "vrx pump: cannot write to standard output: No space left on device\n");
}

TEST_F(Pump, ReportsAServerThatIsNotThere) {
    const int port = RefusedPort();
    const auto end = Run(port, {"--json"});
    EXPECT_EQ(end.exitCode, 3);
    EXPECT_EQ(end.out, "");
    EXPECT_EQ(end.err, "vrx pump: cannot connect to 127.0.0.1:" + std::to_string(port) +
                           ": check the address and that the server runs there (CVRXTalker::Connect: "
                           "SendTcpMessage() of 'connect,127.0.0.1,0' failed with hr=0xffffffff)\n");
    EXPECT_TRUE(OnlyInputLeft());
}

// ---- servers that fail during the run

TEST_F(Pump, ABlockThatTheServerRefusesBecomesSilence) {
    ScriptedServer server({[](Peer& peer) {
        AnswerConnect(peer);
        Echo(peer, 0);
        Echo(peer, 0xFFFFFFFF); // -1 from the server is no lost connection
        Echo(peer, 5);          // and 5 is no failure
    }});
    const auto end = Run(server.Port(), {"--json"});
    EXPECT_EQ(end.exitCode, 4);
    EXPECT_EQ(end.err, "vrx pump: 1 of 3 blocks failed at 127.0.0.1:" + std::to_string(server.Port()) +
                           ", first block 2 with status -1: silence stands for them in " + m_out + "\n");
    const auto object = nlohmann::json::parse(end.out);
    EXPECT_EQ(object.at("failed"), 1);
    EXPECT_EQ(object.at("retried"), 0);
    EXPECT_EQ(m_folder.Read("out.wav"), Wav16(1, {1000, -1000, 0, 0, 7}));
}

TEST_F(Pump, WithoutRetriesALostConnectionEndsTheRun) {
    ScriptedServer server({EchoBlocks(1)});
    const auto end = Run(server.Port(), {"--retries", "0", "--json"});
    EXPECT_EQ(end.exitCode, 4);
    EXPECT_TRUE(IsOneLine(end.err)) << end.err;
    EXPECT_EQ(end.err.rfind("vrx pump: block 2 failed at 127.0.0.1:" + std::to_string(server.Port()), 0), 0U)
        << end.err;
    const auto object = nlohmann::json::parse(end.out);
    EXPECT_EQ(object.at("blocks"), 1) << "what was done so far";
    EXPECT_TRUE(object.at("output").is_null());
    EXPECT_TRUE(OnlyInputLeft());
}

TEST_F(Pump, SendsALostBlockAgain) {
    ScriptedServer server({EchoBlocks(1), EchoBlocks(2)});
    const auto end = Run(server.Port(), {"--json"});
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(nlohmann::json::parse(end.out).at("retried"), 1);
    EXPECT_EQ(nlohmann::json::parse(end.out).at("failed"), 0);
    EXPECT_EQ(m_folder.Read("out.wav"), m_folder.Read("in.wav"));
}

TEST_F(Pump, LeavesAConnectionWhoseReplyIsNoPacket) {
    ScriptedServer server({[](Peer& peer) {
                               AnswerConnect(peer);
                               peer.ReadPacket();
                               peer.Send("sorry\n");
                               EXPECT_TRUE(peer.WaitForClose());
                           },
                           EchoBlocks(3)});
    const auto end = Run(server.Port(), {"--json"});
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(nlohmann::json::parse(end.out).at("retried"), 1);
    EXPECT_EQ(m_folder.Read("out.wav"), m_folder.Read("in.wav"));
}

TEST_F(Pump, AsksAServerWithoutPinsNoMore) {
    ScriptedServer server({[](Peer& peer) {
                               AnswerConnect(peer);
                               EXPECT_EQ(peer.ReadPacket().substr(36),
                                         std::string("-1,In.info1,Out.info1\0\0\0", 24));
                               peer.Send("what?\n");
                               EXPECT_TRUE(peer.WaitForClose());
                           },
                           EchoBlocks(1)});
    const auto end = Vrx({"pump", m_in, m_out, "--servport", std::to_string(server.Port()), "--json"});
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(nlohmann::json::parse(end.out).at("block_frames"), 351);
    EXPECT_EQ(m_folder.Read("out.wav"), m_folder.Read("in.wav"));
}

/// A run of many small blocks, held between two of them while the test does something to its server.
class PumpMidway : public Pump {
protected:
    PumpMidway() { m_folder.Write("in.wav", Wav16(1, Noise(200000))); }

    Strings Command(const std::string& port, const char* retries) {
        return {VRX_PROGRAM, "pump",   m_in,        m_out, "--servport", port,   "--block",
                "1",         "--json", "--samples", "f32", "--retries",  retries};
    }
    /// The temporary output is there as soon as the pumping begins.
    bool WaitUntilPumping() const {
        const auto end = std::chrono::steady_clock::now() + Subprocess::kPatience;
        while (m_folder.Count() < 2 && std::chrono::steady_clock::now() < end) std::this_thread::yield();
        return m_folder.Count() == 2;
    }
};

TEST_F(PumpMidway, EndsWhenItsServerDies) {
    ServeProcess server({"--channels", "1"});
    Subprocess pump(Command(server.Port(), "0"));
    ASSERT_TRUE(WaitUntilPumping());
    pump.Signal(SIGSTOP);
    server.Kill();
    pump.Signal(SIGCONT);
    const auto end = pump.Wait();
    EXPECT_EQ(end.exitCode, 4) << end.err;
    EXPECT_TRUE(IsOneLine(end.err)) << end.err;
    EXPECT_TRUE(OnlyInputLeft());
}

TEST_F(PumpMidway, GoesOnWhenItsServerIsStartedAgain) {
    ServeProcess server({"--channels", "1"});
    Subprocess pump(Command(server.Port(), "3"));
    ASSERT_TRUE(WaitUntilPumping());
    pump.Signal(SIGSTOP);
    server.Kill();
    const ServeProcess second({"--channels", "1", "--port", server.Port()});
    ASSERT_EQ(second.Port(), server.Port());
    pump.Signal(SIGCONT);
    const auto end = pump.Wait(Subprocess::Milliseconds(60000));
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(nlohmann::json::parse(end.out).at("retried"), 1);
    EXPECT_TRUE(m_folder.Read("out.wav") == m_folder.Read("in.wav")) << "the copy differs";
}

TEST_F(PumpMidway, EndsCleanlyOnCtrlC) {
    const ServeProcess server({"--channels", "1"});
    for (const int signal : {SIGINT, SIGTERM}) {
        Subprocess pump(Command(server.Port(), "0"));
        ASSERT_TRUE(WaitUntilPumping());
        pump.Signal(signal);
        const auto end = pump.Wait();
        EXPECT_EQ(end.exitCode, 5) << end.err;
        EXPECT_EQ(end.err, "vrx pump: interrupted; " + m_out + " was not written\n");
        const auto object = nlohmann::json::parse(end.out);
        EXPECT_LT(object.at("blocks"), 200000);
        EXPECT_TRUE(object.at("output").is_null());
        EXPECT_TRUE(OnlyInputLeft());
    }
}

TEST_F(PumpMidway, EndsAtOnceOnTheSecondCtrlC) {
    ScriptedServer server({[](Peer& peer) {
        AnswerConnect(peer);
        peer.ReadPacket(); // and never an answer
        peer.WaitForClose();
    }});
    Subprocess pump(Command(std::to_string(server.Port()), "0"));
    ASSERT_TRUE(WaitUntilPumping());
    pump.Signal(SIGINT);
    pump.Signal(SIGTERM); // two of the same kind could arrive as one
    const auto end = pump.Wait(Subprocess::Milliseconds(9000));
    EXPECT_EQ(end.exitCode, 5) << end.err;
    EXPECT_EQ(end.err, "vrx: interrupted\n");
    EXPECT_TRUE(OnlyInputLeft());
}

// ---- help

TEST(Help, FitsAScreenAndListsTheExitCodes) {
    const auto end = Vrx({"--help"});
    EXPECT_EQ(end.exitCode, 0);
    std::istringstream lines(end.out);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) EXPECT_LE(line.size(), 80U) << line;
    EXPECT_LE(count, 24);
    for (const char* code : {"0 done", "1 wrong usage", "2 input or output file", "3 cannot connect",
                             "4 failed while running", "5 interrupted"})
        EXPECT_NE(end.out.find(code), std::string::npos) << code;
}

TEST(Help, NamesTheVersion) {
    const auto end = Vrx({"--version"});
    EXPECT_EQ(end.exitCode, 0);
    EXPECT_EQ(end.out, "vrx " VRX_VERSION "\n");
    EXPECT_EQ(end.err, "");
}

TEST(Help, ShowsTwoExamplesPerCommand) {
    for (const std::string command : {"pump", "pins", "send", "doctor", "sweep", "compare", "serve"}) {
        SCOPED_TRACE(command);
        const auto end = Vrx({command, "--help"});
        EXPECT_EQ(end.exitCode, 0);
        const std::string example = "\n  vrx " + command + " ";
        const std::size_t first = end.out.find(example);
        ASSERT_NE(first, std::string::npos);
        EXPECT_NE(end.out.find(example, first + 1), std::string::npos);
    }
}

} // namespace
