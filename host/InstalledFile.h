#pragma once

#include <string>

namespace vrx::host {

/// The folder that this program's executable file lies in, links followed.
std::string ProgramFolder();

/// The absolute path of a file that belongs to this program: the first `name` found in the program's folder, in ../lib
/// beside it, or in ../lib/<architecture>; "" for none. Links are not followed: a path that was kept stays right when
/// the file behind it is replaced.
std::string FindInstalled(const std::string& name);

} // namespace vrx::host
