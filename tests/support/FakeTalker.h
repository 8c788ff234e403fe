#pragma once

#include "talker/CVRXTalker.h"

#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// What all fake talkers of a test share: what they were told and what they answer.
struct FakeServer {
    std::vector<std::string> configured; ///< each argument line
    std::deque<bool> connects;           ///< what the next Configure calls return; true when empty
    std::deque<int> results;             ///< what the next PumpAudio calls return; 0 when empty
    int pinResult = 0;
    std::string printed;                            ///< what a talker "prints" with its next failure
    std::function<void()> beforeConnect;            ///< runs inside Configure
    std::vector<std::vector<std::uint32_t>> blocks; ///< the words of each block
    std::vector<unsigned> outCounts;
    std::string lines; ///< printed and not yet taken
    int talkers = 0;   ///< made so far
};

/// A talker without a network: gives each word of a block back plus one.
class FakeTalker : public CVRXTalker {
public:
    explicit FakeTalker(std::shared_ptr<FakeServer> server) : m_server(std::move(server)) {
        ++m_server->talkers;
    }
    float GetAverageCycles() const override { return 16; }
    float GetPumpCycles() const override { return 32; }
    bool Configure(const char* args) override {
        m_server->configured.emplace_back(args);
        if (m_server->beforeConnect) m_server->beforeConnect();
        const bool connected = Next(m_server->connects, true);
        if (!connected) Print();
        return connected;
    }
    int PumpAudio(const void* in, void* out, unsigned inCount, unsigned outCount) override {
        std::vector<std::uint32_t> words(inCount);
        if (inCount > 0) std::memcpy(words.data(), in, inCount * sizeof words[0]);
        m_server->blocks.push_back(words);
        m_server->outCounts.push_back(outCount);
        const int result = Next(m_server->results, 0);
        if (result < 0) {
            Print();
            return result;
        }
        words.resize(outCount);
        for (std::uint32_t& word : words) ++word;
        if (outCount > 0) std::memcpy(out, words.data(), outCount * sizeof words[0]);
        return result;
    }
    int PinProps(unsigned& in1, unsigned& in2, unsigned& in3, unsigned& out1, unsigned& out2,
                 unsigned& out3) override {
        if (m_server->pinResult < 0) {
            Print();
            return m_server->pinResult;
        }
        in1 = 480, in2 = 2, in3 = 1, out1 = 240, out2 = 1, out3 = 0;
        return 0;
    }
    int SendMessage(const char* text, std::string& reply) override {
        const int result = Next(m_server->results, 1);
        if (result < 0) Print();
        if (result >= 0) reply = std::string("re: ") + text;
        return result;
    }

private:
    template <class Value>
    static Value Next(std::deque<Value>& values, Value otherwise) {
        if (values.empty()) return otherwise;
        const Value value = values.front();
        values.pop_front();
        return value;
    }
    void Print() { m_server->lines += m_server->printed; }

    std::shared_ptr<FakeServer> m_server;
};
