#include "tools/bundles/BundleTurtle.h"

#include <gtest/gtest.h>

namespace {

using namespace vrx;
using namespace vrx::tool;

lv2::BundleSettings Settings(std::size_t channels) {
    lv2::BundleSettings settings;
    settings.name = "studio";
    settings.channels = channels;
    return settings;
}

std::size_t Count(const std::string& text, const std::string& what) {
    std::size_t count = 0;
    for (std::size_t at = text.find(what); at != text.npos; at = text.find(what, at + 1)) ++count;
    return count;
}

TEST(ManifestTurtle, PointsAtTheBinaryAndThePlugin) {
    EXPECT_EQ(ManifestTurtle(Settings(2)), "@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n"
                                           "@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .\n"
                                           "\n"
                                           "<urn:vrx:talker:studio>\n"
                                           "\ta lv2:Plugin ;\n"
                                           "\tlv2:binary <vrx_lv2.so> ;\n"
                                           "\trdfs:seeAlso <plugin.ttl> .\n");
}

TEST(PluginTurtle, HasEachPortOnce) {
    for (const std::size_t channels : {1U, 2U, 3U, 64U}) {
        SCOPED_TRACE(channels);
        const std::string text = PluginTurtle(Settings(channels));
        EXPECT_EQ(Count(text, "lv2:port ["), 2 * channels + 4);
        EXPECT_EQ(Count(text, "lv2:AudioPort"), 2 * channels);
        for (std::size_t index = 0; index < 2 * channels + 4; ++index)
            EXPECT_EQ(Count(text, "lv2:index " + std::to_string(index) + " ;"), 1U) << index;
        for (const std::string& number : {std::string("1"), std::to_string(channels)}) {
            EXPECT_EQ(Count(text, "lv2:symbol \"in_" + number + "\""), 1U);
            EXPECT_EQ(Count(text, "lv2:symbol \"out_" + number + "\""), 1U);
        }
        for (const char* symbol : {"latency", "freeWheeling", "enabled", "late"})
            EXPECT_EQ(Count(text, std::string("lv2:symbol \"") + symbol + "\""), 1U) << symbol;
    }
}

TEST(PluginTurtle, SaysWhatThePortsAre) {
    const std::string text = PluginTurtle(Settings(2));
    for (const char* part :
         {"\ta lv2:InputPort , lv2:AudioPort ;\n\t\tlv2:index 0 ;\n\t\tlv2:symbol \"in_1\" ;\n\t\tlv2:name "
          "\"In 1\" "
          ";\n\t\tpg:group <urn:vrx:talker:studio#in> ;\n\t\tlv2:designation pg:left\n",
          "\ta lv2:OutputPort , lv2:AudioPort ;\n\t\tlv2:index 3 ;\n\t\tlv2:symbol \"out_2\" ;\n\t\tlv2:name "
          "\"Out 2\" "
          ";\n\t\tpg:group <urn:vrx:talker:studio#out> ;\n\t\tlv2:designation pg:right\n",
          "lv2:portProperty lv2:reportsLatency , lv2:integer ;\n\t\tunits:unit units:frame",
          "lv2:designation lv2:freeWheeling ;\n\t\tlv2:portProperty lv2:toggled ;\n\t\tlv2:default 0 ;",
          "lv2:designation lv2:enabled ;\n\t\tlv2:portProperty lv2:toggled ;\n\t\tlv2:default 1 ;",
          "doap:name \"VRX studio\" ;", "doap:license <", "doap:maintainer [", "lv2:hardRTCapable"})
        EXPECT_EQ(Count(text, part), 1U) << part;
    EXPECT_EQ(Count(text, "lv2:requiredFeature"), 0U);
}

TEST(PluginTurtle, GroupsTheChannels) {
    struct Case {
        std::size_t channels;
        const char* group;
        std::size_t designated;
    };
    for (const Case& c :
         {Case{1, "pg:MonoGroup", 2}, Case{2, "pg:StereoGroup", 4}, Case{3, "pg:DiscreteGroup", 0}}) {
        const std::string text = PluginTurtle(Settings(c.channels));
        EXPECT_EQ(Count(text, c.group), 2U) << c.channels;
        EXPECT_EQ(Count(text, "pg:group <"), 2 * c.channels);
        EXPECT_EQ(Count(text, "lv2:designation pg:"), c.designated);
    }
}

} // namespace
