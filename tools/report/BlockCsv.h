#pragma once

#include "host/RunStatistics.h"
#include "tools/program/OutputFile.h"

#include <string>

namespace vrx::tool {

/// Writes a CSV file with a line of names and then one row a block, while the run goes on.
///
/// block           from 1
/// due_s, sent_s   seconds from the start of the run to when it was due and when it was last sent
/// round_trip_ms   of that exchange alone
/// since_due_ms    from when it was due to the reply, earlier attempts and waiting included
/// missed          1 when that is longer than the deadline, else 0
/// status          the server's; below 0: the block failed there
/// retries         how often it was sent again
/// average_cycles, pump_cycles   the server's figures
class BlockCsv {
public:
    /// deadline   milliseconds. Throws Failure as `OutputFile` does.
    BlockCsv(const std::string& path, bool overwrite, double deadline);

    void Add(const host::BlockRecord& block);
    void Finish() { m_file.Finish(); }

    static std::string Names();
    static std::string Row(const host::BlockRecord& block, double deadline);

private:
    OutputFile m_file;
    double m_deadline;
};

} // namespace vrx::tool
