#pragma once

#include "tools/server/ClientSocket.h"
#include "tools/server/ReadySockets.h"
#include "tools/server/Service.h"
#include "tools/server/Workers.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vrx::tool {

/// One client: reads a frame, answers it, reads the next. Nothing is read while an answer is unsent. The public
/// members may be called by any thread; all else happens one thing at a time, on the connection's own strand or
/// while no other thread runs any handler.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    /// A client that is sent away has this long to read its last line and close.
    static constexpr std::chrono::milliseconds kFarewell{1000};

    /// number   decides, with the server's seed, which of its replies are spoilt
    Connection(Socket socket, Service& service, Workers& workers, ReadySockets& ready, uint64_t number);
    ~Connection();

    /// Serves the client. The service counts it as served, from before this call to its end.
    void Start();

    /// There may be something new to receive, or room to send.
    /// last     nothing comes after what is there
    /// alone    no other thread runs any handler: then it needs no strand, and goes on within this call
    void Ready(bool last, bool alone);

    /// Sends one last line instead of serving, then closes.
    void TurnAway(std::string line);

    /// Closes the connection when its peer has been silent for too long.
    void CloseIfIdle(Clock::time_point now);

    /// Closes it as soon as no exchange is under way.
    void Finish();

    /// Closes its socket, when nothing serves it any more.
    void Disconnect();

private:
    template <class Handler>
    void OnStrand(Handler handler);
    bool Attend();
    void GoOn(bool last);
    void Serve();
    Frame NextFrame();
    bool Receive();
    void Rest();
    bool AnswerFrame(const Frame& frame);
    bool AnswerText(std::string_view line);
    bool AnswerPacket(std::string_view packet);
    bool AnswerBlock(std::string_view packet, const Request& request);
    void OrderProcessor(std::string_view packet);
    void FillReply(const Request& request);
    void FillInfo(const Request& request);
    void CountBlock(Clock::time_point began, Clock::time_point ended);
    std::span<char> Reply() {
        return {reinterpret_cast<char*>(m_work->reply.data()), m_work->reply.size() * 4};
    }
    bool SendLine(std::string_view line);
    bool SendError(std::string_view error);
    bool Send(std::string_view bytes);
    bool SendUnsent();
    void Proceed();
    bool RunFaultSteps();
    bool RunFaultStep(const FaultStep& step);
    void Refuse(std::chrono::milliseconds time);
    void Pause(std::chrono::milliseconds time);
    void SendForever(std::string_view bytes);
    void SendAway(const std::string& line);
    bool NothingIsUnderWay() const;
    void Reset();
    void Leave();
    void Drain();
    void Close();
    void StopCounting();

    /// What a request and its answer are in: borrowed while there is something in it, so that one is enough for a
    /// thread that serves many clients, and stays in its caches.
    struct Work {
        explicit Work(const ServerOptions& options)
            : frames(options.largestPacket), requests(options.rules) {}
        FrameBuffer frames;
        RequestReader requests;
        std::vector<uint32_t> reply;
    };
    static std::unique_ptr<Work>& SpareWork();

    Strand m_strand;
    ClientSocket m_socket;
    Service& m_service;
    Workers& m_workers;
    ReadySockets& m_ready;
    std::unique_ptr<Work> m_work; // null: nothing received that is not answered
    std::string m_line;
    std::string_view m_unsent;              // of the answer
    std::string_view m_endless;             // sent over and over, unless empty
    std::unique_ptr<Processor> m_processor; // for the first block: most of a stranger's bytes need none
    uint64_t m_blocks = 0;
    double m_blockNanoseconds = 0;                 // over all blocks of this connection
    Clock::time_point m_lastActive = Clock::now(); // or a tick before
    bool m_counted = false;                        // as served
    bool m_leaving = false;                        // has been sent its last line
    bool m_finishing = false;                      // the server is about to stop
    bool m_readable = false;                       // there may be something to receive
    bool m_ended = false;                          // nothing comes after what is there
    bool m_waiting = false;                        // for the client's next bytes
    bool m_pausing = false;                        // for something of our own
    asio::basic_waitable_timer<Clock, asio::wait_traits<Clock>, Strand> m_pause;
    FaultDice m_dice;
    FaultPlan m_faultPlan;
};

} // namespace vrx::tool
