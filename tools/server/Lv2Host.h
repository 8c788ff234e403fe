#pragma once

#include <lilv/lilv.h>
#include <lv2/log/log.h>
#include <lv2/urid/urid.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace vrx::tool {

/// The numbers that stand for URIs between this program and its plug-ins. For any thread.
class Lv2Numbers {
public:
    Lv2Numbers();

    LV2_URID Map(const char* uri);
    /// Null for a number that Map never gave. Valid as long as this object.
    const char* Unmap(LV2_URID number) const;

    LV2_URID_Map* MapFeature() { return &m_mapFeature; }
    LV2_URID_Unmap* UnmapFeature() { return &m_unmapFeature; }

private:
    mutable std::mutex m_mutex;
    std::map<std::string, LV2_URID, std::less<>> m_numbers;
    std::vector<const char*> m_uris; // the URI of number n at n - 1
    LV2_URID_Map m_mapFeature;
    LV2_URID_Unmap m_unmapFeature;
};

/// What this program gives to all LV2 plug-ins, and what is installed of them. One for the process, since
/// plug-ins may keep what they were given.
class Lv2Host {
public:
    /// Loads the descriptions of the installed plug-ins when first called. For any thread.
    static Lv2Host& Get();
    Lv2Host(const Lv2Host&) = delete;
    Lv2Host& operator=(const Lv2Host&) = delete;

    /// lilv serves one thread at a time: whoever calls it holds this lock, except in an instance's run.
    std::mutex& Lock() { return m_lock; }
    LilvWorld* World() { return m_world.get(); }

    /// Null when it is not installed.
    const LilvPlugin* Find(std::string_view uri) const;

    Lv2Numbers& Numbers() { return m_numbers; }
    LV2_Log_Log* LogFeature() { return &m_logFeature; }

private:
    Lv2Host();

    struct FreeWorld {
        void operator()(LilvWorld* world) const { lilv_world_free(world); }
    };
    std::mutex m_lock;
    std::unique_ptr<LilvWorld, FreeWorld> m_world;
    Lv2Numbers m_numbers;
    LV2_Log_Log m_logFeature;
};

/// Frees a node with its owner.
struct FreeNode {
    void operator()(LilvNode* node) const { lilv_node_free(node); }
};
using Lv2Node = std::unique_ptr<LilvNode, FreeNode>;

} // namespace vrx::tool
