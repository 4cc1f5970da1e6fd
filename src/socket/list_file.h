// Where the host list lies while a search writes it, and when it has finished.
#pragma once

namespace qiven::socket {

inline constexpr char kListFile[] = "/tmp/tavoqx.list";
inline constexpr char kFinishedListFile[] = "/tmp/tavoqx.list.tmp";
inline constexpr char kInstListFile[] = "/tmp/grinst_chche.list";

}  // namespace qiven::socket
