#pragma once

#include <QString>
#include <functional>
#include <memory>

#include "telemetry/UsageTransport.h"

class QObject;
class QProcess;

namespace tw {

// Usage posts made by the post helper (tintwell-post), a short-lived process
// of its own per post: it gets the request on its standard input, makes it
// with the HTTPS transport and writes the answer on its standard output. The
// TLS library, the CA store and the network thread (about 10 MiB once loaded)
// then never settle in the application, which may run for days and posts
// once every ten minutes.
//
// Where the helper cannot be started (not installed next to the binary), the
// posts go to the transport `fallback` makes instead. A fatal stop of the helper (an unusable CA
// file) is this process's, as it would be there. Lives on, and completes on, the thread it was made
// on.
class HelperUsageTransport final : public UsageTransport {
 public:
  using Factory = std::function<std::shared_ptr<UsageTransport>()>;
  HelperUsageTransport(QString helper, Factory fallback);
  ~HelperUsageTransport() override;
  HelperUsageTransport(const HelperUsageTransport&) = delete;
  HelperUsageTransport& operator=(const HelperUsageTransport&) = delete;

  void post(const UsageRequest& request, Completion completion) override;

  // TINTWELL_POST_HELPER when set; else tintwell-post next to the running
  // binary (the build tree), then in the install's libexec folder; empty when
  // none is there.
  static QString findHelper();

 private:
  void postToFallback(const UsageRequest& request, Completion completion);
  static void finish(QProcess& process, const Completion& completion);

  QString helper_;
  Factory makeFallback_;
  std::shared_ptr<UsageTransport> fallback_;
  std::unique_ptr<QObject> context_;  // owns the helpers still running; its end cancels completions
};

// The transport the application uses: the post helper where it is installed.
// Without it every post fails with missingPostHelperError(): the application
// links no network library, so that neither the TLS code nor QtNetwork's
// libraries load into a panel that may run for days.
std::shared_ptr<UsageTransport> makeUsageTransport();
QString missingPostHelperError();

}  // namespace tw
