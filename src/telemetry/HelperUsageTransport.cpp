#include "telemetry/HelperUsageTransport.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QObject>
#include <QProcess>
#include <cstdio>
#include <utility>

#include "common/Fatal.h"
#include "telemetry/PostExchange.h"

namespace tw {

namespace {

QString executableAt(const QString& path) {
  const QFileInfo info(path);
  return info.isFile() && info.isExecutable() ? info.absoluteFilePath() : QString();
}

// What the application posts with when the helper is not installed: this
// program carries no HTTPS code of its own, so each post fails and says why;
// the sender keeps the counts for the next post, as after any failed one.
class MissingHelperTransport final : public UsageTransport {
 public:
  MissingHelperTransport() : context_(std::make_unique<QObject>()) {}
  void post(const UsageRequest&, Completion completion) override {
    // Queued, so that post() never completes before it returns.
    QMetaObject::invokeMethod(
        context_.get(),
        [completion = std::move(completion)] {
          completion(std::nullopt, std::nullopt, missingPostHelperError());
        },
        Qt::QueuedConnection);
  }

 private:
  std::unique_ptr<QObject> context_;
};

}  // namespace

HelperUsageTransport::HelperUsageTransport(QString helper, Factory fallback)
    : helper_(std::move(helper)),
      makeFallback_(std::move(fallback)),
      context_(std::make_unique<QObject>()) {}

// The helpers still running (a post out when the application ends) are
// stopped: a transport's end cancels its completions, so their answers are
// not waited for. Killed and reaped here, with their completions cut off
// first, so that QProcess has no running process to warn about.
HelperUsageTransport::~HelperUsageTransport() {
  for (QProcess* process : context_->findChildren<QProcess*>(Qt::FindDirectChildrenOnly)) {
    QObject::disconnect(process, nullptr, context_.get(), nullptr);
    if (process->state() == QProcess::NotRunning) continue;
    process->kill();
    process->waitForFinished(5000);
  }
  context_.reset();
}

QString HelperUsageTransport::findHelper() {
  QString named = qEnvironmentVariable("TINTWELL_POST_HELPER");
  if (!named.isEmpty()) return named;
  const QString here = QCoreApplication::applicationDirPath();
  QString found = executableAt(here + QStringLiteral("/tintwell-post"));
  if (found.isEmpty())
    found =
        executableAt(here + QStringLiteral("/" TINTWELL_POST_HELPER_FROM_BINDIR "/tintwell-post"));
  return found;
}

void HelperUsageTransport::post(const UsageRequest& request, Completion completion) {
  if (helper_.isEmpty()) {
    // Queued, so that post() never completes before it returns.
    QMetaObject::invokeMethod(
        context_.get(),
        [this, request, completion = std::move(completion)]() mutable {
          postToFallback(request, std::move(completion));
        },
        Qt::QueuedConnection);
    return;
  }
  auto* process = new QProcess(context_.get());
  QObject::connect(process, &QProcess::finished, context_.get(),
                   [process, completion](int, QProcess::ExitStatus) {
                     process->deleteLater();
                     finish(*process, completion);
                   });
  QObject::connect(process, &QProcess::errorOccurred, context_.get(),
                   [this, process, request, completion](QProcess::ProcessError error) {
                     if (error != QProcess::FailedToStart) return;  // finished() follows
                     process->deleteLater();
                     // Missing or not runnable: this and every later post goes to the fallback.
                     helper_.clear();
                     QMetaObject::invokeMethod(
                         context_.get(),
                         [this, request, completion] { postToFallback(request, completion); },
                         Qt::QueuedConnection);
                   });
  process->start(helper_, QStringList{});
  if (process->state() == QProcess::NotRunning) return;  // failed at once; handled above
  process->write(encodeUsageRequest(request));
  process->closeWriteChannel();
}

void HelperUsageTransport::postToFallback(const UsageRequest& request, Completion completion) {
  if (!fallback_) fallback_ = makeFallback_();
  fallback_->post(request, std::move(completion));
}

void HelperUsageTransport::finish(QProcess& process, const Completion& completion) {
  // What the helper said on its standard error is the application's to say;
  // its fatal stop (a CA file that cannot be used) ends this process too.
  const QByteArray errors = process.readAllStandardError();
  const QByteArrayView prefix(kFatalLinePrefix.data(),
                              static_cast<qsizetype>(kFatalLinePrefix.size()));
  for (const QByteArray& line : errors.split('\n')) {
    if (line.startsWith(prefix)) fatalStop(line.mid(prefix.size()).toStdString());
  }
  if (!errors.isEmpty()) {
    std::fwrite(errors.constData(), 1, static_cast<size_t>(errors.size()), stderr);
    std::fflush(stderr);
  }
  if (process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0) {
    if (auto answer = decodeUsageAnswer(process.readAllStandardOutput())) {
      completion(std::move(answer->data), std::move(answer->response), std::move(answer->error));
      return;
    }
  }
  completion(std::nullopt, std::nullopt,
             QStringLiteral("The post helper ended without an answer (%1 %2)")
                 .arg(process.exitStatus() == QProcess::NormalExit ? QStringLiteral("exit status")
                                                                   : QStringLiteral("signal"))
                 .arg(process.exitCode()));
}

QString missingPostHelperError() {
  return QStringLiteral(
      "The post helper tintwell-post is not installed (looked beside the program and in "
      "its " TINTWELL_POST_HELPER_FROM_BINDIR "; TINTWELL_POST_HELPER names another)");
}

std::shared_ptr<UsageTransport> makeUsageTransport() {
  return std::make_shared<HelperUsageTransport>(HelperUsageTransport::findHelper(), [] {
    return std::make_shared<MissingHelperTransport>();
  });
}

}  // namespace tw
