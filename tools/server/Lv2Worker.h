#pragma once

#include <lv2/worker/worker.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace vrx::tool {

/// The thread on which an LV2 instance does what would take its run too long.
class Lv2Worker {
public:
    Lv2Worker();
    ~Lv2Worker() { Stop(); }
    Lv2Worker(const Lv2Worker&) = delete;
    Lv2Worker& operator=(const Lv2Worker&) = delete;

    /// The feature for the instance, by which it asks for work.
    LV2_Worker_Schedule* Schedule() { return &m_schedule; }

    /// Starts the thread for an instance that has been made. Work asked for earlier is done now.
    void Start(LV2_Handle instance, const LV2_Worker_Interface* plugin);

    /// Ends the thread after the work it is at; what waits is dropped.
    void Stop();

    /// Hands the instance what its work brought. Called after each run, by the thread of that run.
    void Deliver();

private:
    using Message = std::vector<char>;

    static LV2_Worker_Status Ask(LV2_Worker_Schedule_Handle self, uint32_t size, const void* data);
    static LV2_Worker_Status Respond(LV2_Worker_Respond_Handle self, uint32_t size, const void* data);
    void Work();

    LV2_Worker_Schedule m_schedule;
    LV2_Handle m_instance = nullptr;
    const LV2_Worker_Interface* m_plugin = nullptr;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Message> m_asked;
    std::deque<Message> m_answers;
    bool m_ending = false;
    std::thread m_thread;
};

} // namespace vrx::tool
