#include "tools/server/Lv2Worker.h"

#include <utility>

namespace vrx::tool {

Lv2Worker::Lv2Worker() : m_schedule{this, Ask} {}

void Lv2Worker::Stop() {
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_one();
    if (m_thread.joinable()) m_thread.join();
}

void Lv2Worker::Start(LV2_Handle instance, const LV2_Worker_Interface* plugin) {
    m_instance = instance;
    m_plugin = plugin;
    m_thread = std::thread([this] { Work(); });
}

LV2_Worker_Status Lv2Worker::Ask(LV2_Worker_Schedule_Handle self, uint32_t size, const void* data) {
    auto& worker = *static_cast<Lv2Worker*>(self);
    const auto* const bytes = static_cast<const char*>(data);
    {
        const std::lock_guard lock(worker.m_mutex);
        worker.m_asked.emplace_back(bytes, bytes + size);
    }
    worker.m_changed.notify_one();
    return LV2_WORKER_SUCCESS;
}

LV2_Worker_Status Lv2Worker::Respond(LV2_Worker_Respond_Handle self, uint32_t size, const void* data) {
    auto& worker = *static_cast<Lv2Worker*>(self);
    const auto* const bytes = static_cast<const char*>(data);
    const std::lock_guard lock(worker.m_mutex);
    worker.m_answers.emplace_back(bytes, bytes + size);
    return LV2_WORKER_SUCCESS;
}

void Lv2Worker::Work() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_ending || !m_asked.empty(); });
        if (m_ending) return;
        const Message message = std::move(m_asked.front());
        m_asked.pop_front();
        lock.unlock();
        (void)m_plugin->work(m_instance, Respond, this, static_cast<uint32_t>(message.size()),
                             message.data());
        lock.lock();
    }
}

void Lv2Worker::Deliver() {
    if (m_plugin == nullptr) return;
    std::deque<Message> answers;
    {
        const std::lock_guard lock(m_mutex);
        answers.swap(m_answers);
    }
    for (const Message& answer : answers) {
        if (m_plugin->work_response == nullptr) break;
        (void)m_plugin->work_response(m_instance, static_cast<uint32_t>(answer.size()), answer.data());
    }
    if (m_plugin->end_run != nullptr) (void)m_plugin->end_run(m_instance);
}

} // namespace vrx::tool
