#include "bridge/LoginName.h"

#include <pwd.h>
#include <unistd.h>

#include <vector>

namespace tw {

QString loginName() {
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found) return {};
  return QString::fromLocal8Bit(found->pw_name);
}

}  // namespace tw
