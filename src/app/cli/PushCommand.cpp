#include "app/cli/PushCommand.h"

#include <QCoreApplication>
#include <QStringList>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "app/Preferences.h"
#include "app/cli/StderrAlertPresenter.h"
#include "bridge/Commander.h"
#include "bridge/HostDescription.h"
#include "bridge/HostDispatcher.h"
#include "bridge/linux/NativeHosts.h"
#include "common/Log.h"
#include "tools/ConvertCommand.h"

namespace tw {

namespace {

const char* kUsage =
    "Usage: tintwell push R G B [--to HOST,...] [--timeout MS]\n"
    "       tintwell push '#RRGGBB' [--to HOST,...] [--timeout MS]\n"
    "Sends one colour to every running design application that is switched on in\n"
    "the preferences, or to the hosts named with --to (photoshop, illustrator,\n"
    "gimp, inkscape, krita) whether switched on or not, and prints one line per\n"
    "host. Exits with 1 when a named host could not be reached, 2 on bad usage.\n"
    "--timeout is how long each host may take (default 3000 ms).\n";

const QStringList kScriptHosts = {QStringLiteral("photoshop"), QStringLiteral("illustrator")};

void printLine(const QString& line) {
  const QByteArray bytes = (line + QLatin1Char('\n')).toUtf8();
  std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
  std::fflush(stdout);
}

// Notices (Krita's plug-in) go to standard error, like the restart alert.
class PrintingEvents : public HostEvents {
 public:
  bool notice(const QString&, const QString& hostName, const QString& text) override {
    const QByteArray bytes = (hostName + QStringLiteral(": ") + text + QLatin1Char('\n')).toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stderr);
    return true;
  }
};

QString describe(const HostColor& color, const PushOutcome& outcome) {
  switch (outcome.status) {
    case PushStatus::Confirmed:
      return color.hex() + QStringLiteral(" set");
    case PushStatus::Queued:
      return color.hex() + QStringLiteral(" queued until a document is open");
    case PushStatus::NothingSelected:
    case PushStatus::NotRunning:
    case PushStatus::Failed:
      break;
  }
  return outcome.reason;
}

std::optional<HostColor> parseColor(const std::vector<std::string>& words) {
  if (words.size() == 1) return HostColor::fromHex(QString::fromStdString(words[0]));
  if (words.size() != 3) return std::nullopt;
  const auto channels = parseChannelLine(words[0] + ' ' + words[1] + ' ' + words[2]);
  if (!channels) return std::nullopt;
  return HostColor{(*channels)[0], (*channels)[1], (*channels)[2]};
}

}  // namespace

int runPushCommand(int argc, char** argv) {
  std::vector<std::string> words;
  std::optional<QStringList> named;
  int timeoutMs = 3000;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--help") == 0) {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (std::strcmp(argv[i], "--to") == 0 && i + 1 < argc) {
      named =
          QString::fromLocal8Bit(argv[++i]).toLower().split(QLatin1Char(','), Qt::SkipEmptyParts);
      continue;
    }
    if (std::strcmp(argv[i], "--timeout") == 0 && i + 1 < argc) {
      bool ok = false;
      timeoutMs = QByteArray(argv[++i]).toInt(&ok);
      if (!ok || timeoutMs <= 0) {
        std::fprintf(stderr, "tintwell push: --timeout takes a positive number of milliseconds\n");
        return 2;
      }
      continue;
    }
    words.emplace_back(argv[i]);
  }
  const std::optional<HostColor> color = parseColor(words);
  if (!color) {
    std::fprintf(stderr, "tintwell push: expected R G B (0 to 255) or #RRGGBB\n%s", kUsage);
    return 2;
  }

  int qtArgc = 1;
  char name[] = "tintwell";
  char* qtArgv[] = {name, nullptr};
  QCoreApplication app(qtArgc, qtArgv);

  auto dispatcher =
      std::make_shared<HostDispatcher>(nativeDesignHosts(), std::make_shared<PrintingEvents>(),
                                       std::chrono::milliseconds(timeoutMs));
  const std::vector<QString> nativeKeys = dispatcher->keys();
  if (named) {
    for (const QString& key : *named) {
      const bool known = kScriptHosts.contains(key) ||
                         std::find(nativeKeys.begin(), nativeKeys.end(), key) != nativeKeys.end();
      if (!known) {
        std::fprintf(stderr, "tintwell push: unknown host '%s'\n%s", qPrintable(key), kUsage);
        return 2;
      }
    }
  }
  // Named hosts get the colour whatever the preferences say; otherwise the
  // preferences' switches, read as the panel reads them.
  const Preferences preferences = Preferences::load();
  const auto wanted = [&](const QString& key) {
    return named ? named->contains(key) : preferences.hostEnabled(key);
  };

  // The script folder and Photoshop's settings as the panel has them, so a
  // script host is pushed to exactly as from the panel.
  Commander commander(defaultHostDescription(), std::make_shared<StderrAlertPresenter>());
  commander.initScriptFiles();
  for (const QString& key : kScriptHosts) commander.setScriptHostEnabled(key, wanted(key));
  // The launcher's own lines would mix with the outcome lines; keep them off
  // standard output.
  setLogSink([](std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fputc('\n', stderr);
  });
  const std::vector<QString> scriptPushed =
      commander.pushToScriptHosts(ColorStruct::fromChannels(color->red, color->green, color->blue));

  // Which native hosts are running, by the same scan the bridge makes.
  std::vector<RunningApplication> running = defaultHostDescription()->runningApplications();
  for (const QString& key : nativeKeys) {
    dispatcher->setEnabled(key, wanted(key));
    if (named && named->contains(key)) dispatcher->offerTo(key, *color);
  }
  if (!named) dispatcher->offer(*color, running);
  dispatcher->waitIdle(std::chrono::milliseconds(timeoutMs) * 3 + std::chrono::seconds(1));
  setLogSink({});

  bool namedFailed = false;
  bool any = false;
  const std::map<QString, QString> scriptNames = {
      {QStringLiteral("photoshop"), QStringLiteral("Photoshop")},
      {QStringLiteral("illustrator"), QStringLiteral("Illustrator")}};
  const Commander::State scan = commander.state();
  const auto scriptRunning = [&](const QString& key) {
    return key == QLatin1String("photoshop") ? scan.bPhotoshopFound.value_or(false)
                                             : scan.bIllustragorFound.value_or(false);
  };
  for (const QString& key : kScriptHosts) {
    const bool pushed =
        std::find(scriptPushed.begin(), scriptPushed.end(), key) != scriptPushed.end();
    if (pushed) {
      any = true;
      printLine(scriptNames.at(key) + QStringLiteral(": script opened with ") + color->hex());
    } else if (!named && scriptRunning(key)) {
      any = true;
      printLine(scriptNames.at(key) + QStringLiteral(": switched off in the preferences"));
    } else if (named && named->contains(key)) {
      namedFailed = true;
      printLine(scriptNames.at(key) + QStringLiteral(": not running"));
    }
  }
  for (const QString& key : nativeKeys) {
    const std::optional<PushOutcome> outcome = dispatcher->lastOutcome(key);
    if (!outcome) {
      if (!named && !wanted(key) && dispatcher->isHostRunning(key, running)) {
        any = true;
        printLine(*dispatcher->displayName(key) +
                  QStringLiteral(": switched off in the preferences"));
      } else if (named && named->contains(key)) {
        namedFailed = true;
        printLine(*dispatcher->displayName(key) + QStringLiteral(": not pushed"));
      }
      continue;
    }
    any = true;
    printLine(*dispatcher->displayName(key) + QStringLiteral(": ") + describe(*color, *outcome));
    if (named && named->contains(key) && !outcome->reached()) namedFailed = true;
  }
  if (!any && !named) printLine(QStringLiteral("No design application is running."));
  return namedFailed ? 1 : 0;
}

}  // namespace tw
