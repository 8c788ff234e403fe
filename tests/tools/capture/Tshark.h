#pragma once

#include "tests/support/Subprocess.h"

#include <string>
#include <vector>

/// What tshark calls trouble: nothing of it belongs into a recording.
inline constexpr char kTrouble[] =
    "_ws.malformed || tcp.analysis.retransmission || tcp.analysis.fast_retransmission || "
    "tcp.analysis.out_of_order || "
    "tcp.analysis.lost_segment || tcp.analysis.ack_lost_segment || tcp.analysis.duplicate_ack || "
    "tcp.analysis.window_full || tcp.analysis.reused_ports || ip.checksum.status == 0 || tcp.checksum.status "
    "== 0";

inline bool HaveTshark() {
    static const bool have = RunProgram({"sh", "-c", "command -v tshark"}).exitCode == 0;
    return have;
}

/// What `tshark -r file arguments...` prints, with nobody's own settings.
inline std::string Tshark(const std::string& file, const std::vector<std::string>& arguments) {
    std::vector<std::string> command{"env", "HOME=/nonexistent", "LC_ALL=C.UTF-8", "tshark", "-n", "-r",
                                     file};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const auto end = RunProgram(command);
    return end.exitCode == 0 ? end.out : "tshark failed: " + end.err;
}
