#pragma once

#include <QString>
#include <optional>
#include <vector>

namespace tw {

// One running application as the bridge sees it.
struct RunningApplication {
  // Display name; absent when the system gives none (the bridge stops then).
  std::optional<QString> localizedName;
  // Where the application lives, as the system reports it; absent when unknown.
  std::optional<QString> bundleURL;

  friend bool operator==(const RunningApplication&, const RunningApplication&) = default;
};

// Lists the running applications of the current user. Implementations must be
// callable from any thread; the order they give is the order the bridge walks.
class ApplicationLister {
 public:
  virtual ~ApplicationLister() = default;
  virtual std::vector<RunningApplication> runningApplications() const = 0;
};

// A fixed list, for hosts whose process table is fed from elsewhere (tests,
// benchmarks).
class FixedApplicationLister : public ApplicationLister {
 public:
  explicit FixedApplicationLister(std::vector<RunningApplication> applications)
      : applications_(std::move(applications)) {}
  std::vector<RunningApplication> runningApplications() const override { return applications_; }

 private:
  std::vector<RunningApplication> applications_;
};

}  // namespace tw
