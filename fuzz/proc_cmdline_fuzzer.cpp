// The running-application entry made from a /proc/<pid>/cmdline text
// (ProcApplicationLister::applicationFromCommandLine): the input is the text,
// NUL-separated words with argv[0] first, or anything else a process can put
// there.
#include <QByteArray>
#include <QFile>
#include <cstdint>

#include "FuzzInput.h"
#include "bridge/linux/ProcApplicationLister.h"

namespace tw {
namespace {

void runOne(const QByteArray& commandLine) {
  const std::optional<RunningApplication> application =
      ProcApplicationLister::applicationFromCommandLine(commandLine);
  TW_FUZZ_CHECK(application.has_value() == !commandLine.isEmpty());
  if (!application) return;
  TW_FUZZ_CHECK(application->localizedName && application->bundleURL);
  const QString& name = *application->localizedName;
  const QString& location = *application->bundleURL;
  // The location is argv[0] as the system gives it: up to the first NUL.
  const QByteArray argv0(commandLine.constData());  // the data ends in a NUL of its own
  TW_FUZZ_CHECK(location == QFile::decodeName(argv0));
  // The name is its last part, after any '/' or '\'.
  TW_FUZZ_CHECK(location.endsWith(name));
  TW_FUZZ_CHECK(!name.contains(QLatin1Char('/')) && !name.contains(QLatin1Char('\\')));
  if (name.size() < location.size()) {
    const QChar before = location.at(location.size() - name.size() - 1);
    TW_FUZZ_CHECK(before == QLatin1Char('/') || before == QLatin1Char('\\'));
  }
}

}  // namespace
}  // namespace tw

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tw::runOne(QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)));
  return 0;
}
