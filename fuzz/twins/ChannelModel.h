#pragma once

#include "fuzz/Allowance.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/ScriptedServer.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <deque>
#include <string>
#include <utility>
#include <vector>

namespace vrx::fuzz {

/// What a channel must make of a scripted connection: results, replies and the receive buffer, which keeps
/// what earlier replies left there.
class ChannelModel {
public:
    static constexpr size_t kBufferSize = CTcpIOTalk::kBufferSize;
    static constexpr size_t kRunBytes = 1 << 16;

    // The connection.
    bool connected = false;
    bool gone = false; // the server has left: sending fails
    std::deque<std::string> pieces;
    End end = End::kCloses;

    // The last exchange.
    std::vector<std::string> taken; // pieces received
    bool endReached = false;
    bool reconnected = false; // the good server has answered in place of the scripted one
    bool awaited = false;     // a reply was waited for: what follows is known
    bool broken = false;      // a reply in several pieces broke off: its bytes are nowhere
    std::string reply;
    int length = 0;

    void Connect() {
        Kill();
        connected = true;
    }

    void Kill() {
        connected = false;
        gone = false;
        ended = false;
        pieces.clear();
    }

    /// Reads the pieces of a reply from a script: up to 7, each a length and that many bytes, or for lengths
    /// from 0xF0 on some runs of 64 KiB of one byte. A connection that has ended brings nothing more.
    void Script(FuzzInput& input, End wantedEnd, Allowance& slowCases) {
        for (unsigned count = input.UpTo(7); count > 0; --count) {
            const unsigned size = input.Byte();
            if (size >= 0xF0 && slowCases.Take(0.001 * (size - 0xEF))) {
                const char fill = input.Char();
                for (unsigned run = 0xF0; run <= size; ++run) pieces.emplace_back(kRunBytes, fill);
            } else if (std::string piece = input.Bytes(size); !piece.empty()) {
                pieces.push_back(std::move(piece));
            }
        }
        if (gone || ended)
            pieces.clear();
        else
            end = IsLong() && wantedEnd == End::kFails ? End::kCloses : wantedEnd;
    }

    /// The server leaves behind the last piece; long replies, which take their time, are cut off.
    void Leave() {
        if (IsLong()) pieces.clear();
        gone = true;
        end = End::kCloses;
    }

    /// `limited`: a time-out below one tick, which is always reported in the end.
    int Text(const std::string& text, bool limited) {
        Begin();
        if (gone && !text.empty()) {
            Connect();
            reconnected = true;
            pieces = {std::string(GoodServer::kAnswer) + "\n"};
        }
        const int result = Message(false, limited);
        if (result < 0) Kill();
        return result;
    }

    int Binary(int count, bool collects, bool raw, bool limited) {
        Begin();
        if (count < 0 || (count > 0 && gone)) return CTcpIOTalk::kSendFailed;
        const int result = Message(raw, limited);
        if (result < 0) Kill();
        return result < 0 || !collects ? result : Collect(raw, limited);
    }

    int Direct(bool raw, bool limited) {
        Begin();
        return Message(raw, limited);
    }

    uint32_t Word(size_t offset) const {
        uint32_t word;
        std::memcpy(&word, &buffer[offset], sizeof word);
        return word;
    }

    std::vector<char> buffer = std::vector<char>(kBufferSize + 8);

private:
    bool IsLong() const {
        return std::any_of(pieces.begin(), pieces.end(),
                           [](const std::string& piece) { return piece.size() == kRunBytes; });
    }

    void Begin() {
        taken.clear();
        endReached = false;
        reconnected = false;
        awaited = false;
        broken = false;
    }

    int Receive(size_t at, bool limited) {
        if (at >= kBufferSize) return CTcpIOTalk::kPeerClosed;
        int result = 0;
        if (pieces.empty()) {
            endReached = ended = true;
            if (end == End::kStalls) {
                Kill();
                return CTcpIOTalk::kTimedOut;
            }
            result = end == End::kFails ? CTcpIOTalk::kReceiveFailed : CTcpIOTalk::kPeerClosed;
        } else {
            const std::string piece = std::move(pieces.front());
            pieces.pop_front();
            const size_t count = std::min(piece.size(), kBufferSize - at);
            std::copy_n(piece.begin(), count, buffer.begin() + static_cast<ptrdiff_t>(at));
            if (!reconnected) taken.push_back(piece);
            if (!limited) buffer[at + count] = 0;
            result = static_cast<int>(count);
        }
        return limited ? CTcpIOTalk::kTimedOut : result;
    }

    int Message(bool raw, bool limited) {
        awaited = true;
        reply.clear();
        length = 0;
        buffer[0] = 0;
        size_t total = 0;
        for (;;) {
            const int received = Receive(total, limited);
            if (received < 0) return received;
            total += static_cast<size_t>(received);
            if (raw) {
                length = received;
                return CTcpIOTalk::kReplied;
            }
            if (Word(0) == CTcpIOTalk::kPacketMarker) {
                length = static_cast<int>(Word(4));
                if (Word(4) > total) continue;
                reply.assign(buffer.data(), Word(4));
                return CTcpIOTalk::kReplied;
            }
            const char* lineEnd = std::strchr(buffer.data(), '\n');
            if (!lineEnd) continue;
            length = 0;
            reply.assign(static_cast<const char*>(buffer.data()), lineEnd);
            return CTcpIOTalk::kReplied;
        }
    }

    int Collect(bool raw, bool limited) {
        const size_t expected = size_t{4} * (Word(0) >> 16);
        std::string all(buffer.data(), static_cast<size_t>(length));
        if (all.size() >= expected) return CTcpIOTalk::kReplied;
        while (all.size() < expected) {
            if (Message(raw, limited) < 0) {
                Kill();
                broken = true;
                length = static_cast<int>(all.size());
                return CTcpIOTalk::kReplied;
            }
            all.append(buffer.data(), static_cast<size_t>(length));
        }
        all.resize(std::min(all.size(), kBufferSize));
        std::copy(all.begin(), all.end(), buffer.begin());
        length = static_cast<int>(all.size());
        return CTcpIOTalk::kReplied;
    }

    bool ended = false; // the end was reached on this connection
};

} // namespace vrx::fuzz
