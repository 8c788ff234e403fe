#include "tcpio/internal/HostTable.h"

#include <algorithm>
#include <cxxabi.h>
#include <list>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace vrx {

namespace {

/// What the resolver said of a host, in storage of its own.
struct Answer {
    std::string name;
    int family;
    int addressBytes; // of each address
    std::vector<std::string> aliases;
    std::vector<std::string> addresses;

    bool operator==(const Answer&) const = default;
};

Answer AnswerFrom(const hostent& host) {
    Answer answer{host.h_name ? host.h_name : "", host.h_addrtype, host.h_length, {}, {}};
    for (char** alias = host.h_aliases; alias && *alias; ++alias) answer.aliases.emplace_back(*alias);
    for (char** address = host.h_addr_list; address && *address; ++address)
        answer.addresses.emplace_back(*address, static_cast<size_t>(host.h_length));
    return answer;
}

/// The start of each text, then null.
std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// A host entry together with the storage that it points into.
class HostCopy {
public:
    explicit HostCopy(Answer answer) : m_answer(std::move(answer)) {}
    HostCopy(const HostCopy&) = delete;
    HostCopy& operator=(const HostCopy&) = delete;

    bool Is(const Answer& answer) const { return m_answer == answer; }
    hostent* Entry() { return &m_entry; }

private:
    Answer m_answer;
    std::vector<char*> m_aliases = Pointers(m_answer.aliases);
    std::vector<char*> m_addresses = Pointers(m_answer.addresses);
    hostent m_entry{m_answer.name.data(), m_aliases.data(), m_answer.family, m_answer.addressBytes,
                    m_addresses.data()};
};

// A host's static objects may exchange by name in their destructors, when this library's own static objects are gone
// already. So these have no destructors.
std::mutex g_mutex;
std::list<HostCopy>* g_copies = nullptr;
static_assert(std::is_trivially_destructible_v<std::mutex>);

/// Runs when the library is unloaded, and at the very end of a process, behind all destructors of static objects.
[[gnu::destructor]] void FreeCopies() {
    delete std::exchange(g_copies, nullptr);
}

hostent* Resolve(const char* name) {
    try {
        return gethostbyname(name);
    } catch (abi::__forced_unwind&) {
        throw; // a cancelled thread must go on unwinding
    } catch (...) {
        return nullptr;
    }
}

} // namespace

hostent* LookUpHost(const char* name) {
    const std::lock_guard lock(g_mutex);
    const hostent* host = Resolve(name);
    if (!host) return nullptr;

    Answer answer = AnswerFrom(*host);
    if (!g_copies) g_copies = new std::list<HostCopy>;
    const auto same = std::find_if(g_copies->begin(), g_copies->end(),
                                   [&](const HostCopy& copy) { return copy.Is(answer); });
    if (same != g_copies->end()) return same->Entry();
    return g_copies->emplace_back(std::move(answer)).Entry();
}

} // namespace vrx
