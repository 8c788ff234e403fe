#include "tools/report/BlockCsv.h"

#include "tools/program/Numbers.h"

namespace vrx::tool {

BlockCsv::BlockCsv(const std::string& path, bool overwrite, double deadline)
    : m_file(path, overwrite), m_deadline(deadline) {
    m_file.Write(Names());
}

void BlockCsv::Add(const host::BlockRecord& block) {
    m_file.Write(Row(block, m_deadline));
}

std::string BlockCsv::Names() {
    return "block,due_s,sent_s,round_trip_ms,since_due_ms,missed,status,retries,average_cycles,pump_cycles\n";
}

std::string BlockCsv::Row(const host::BlockRecord& block, double deadline) {
    const std::string fields[] = {std::to_string(block.number),
                                  Fixed(block.dueAt, 6),
                                  Fixed(block.sentAt, 6),
                                  Fixed(block.milliseconds, 4),
                                  Fixed(block.sinceDue, 4),
                                  block.sinceDue > deadline ? "1" : "0",
                                  std::to_string(block.result),
                                  std::to_string(block.retries),
                                  Fixed(double{block.averageCycles}, 0),
                                  Fixed(double{block.pumpCycles}, 0)};
    std::string row;
    for (const std::string& field : fields) row += (row.empty() ? "" : ",") + field;
    return row + "\n";
}

} // namespace vrx::tool
