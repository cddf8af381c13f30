// A long scripted session of the desktop application with faults injected,
// run at a small time scale so that a day of its timers passes in minutes:
// the real `tintwell` on a private Xvfb, the fake BlueZ on a private system
// bus, a local HTTPS telemetry server that fails every third request, and a
// process named like Photoshop so that every colour is pushed.
//
// During the run the pen sends a new colour every 20 ms; every few seconds the
// link is upset in turn by the pen dropping (then Bluetooth off and on, which
// is how the pen comes back), by Bluetooth switched off and on while connected,
// and by BlueZ leaving the bus and returning; now and then a dropper pick is
// made on a screen of a new colour. At the end the server stops failing and the
// application is asked to quit (SIGTERM, through the quit handshake).
//
// The report (standard output, and the file named by --report) says whether
// the application stayed up and responsive, how its resident memory moved, how
// often the pen came back, and where every counted colour went: in exactly one
// accepted post, or lost by one of the application's three deliberate rules
// (a successful post renews the record, dropping what was counted while it
// was out; every return of the panel after a pick starts fresh records; a
// quit after an earlier success ends on the first answer, with the quit's
// colour post still out). Any colour lost otherwise, posted twice or never
// received is a failure.
//
//   desktop_soak [--hours H] [--scale S] [--minutes M] [--report FILE]
//                [--transcript FILE] [--memory report-only] [--network own]
//                [--pick-every SECONDS] [--link-every SECONDS] [--memory-growth-kib K]
//     H: hours of the application's timers to run (default 24)
//     S: TINTWELL_TIME_SCALE (default 0.005, so 24 hours take 7.2 minutes)
//     M: minutes of real time to run instead of H hours of timers (with
//       --scale 1 the timers run at their real schedule)
//     --transcript: every line the application printed, numbered, with each
//       colour post the server answered (its lists, and whether it was
//       accepted) after the line read last when it was seen
//     --pick-every: seconds between dropper picks (default 29)
//     --link-every: seconds between link upsets (default 5; 0: none, the pen
//       stays connected the whole run)
//     --memory-growth-kib K: judge memory as a long real-time run needs it
//       (instead of the second-half check below): the resident size a second
//       after each renewal of the colour record (a successful colour post, or
//       the panel's return after a pick), once the old record's lists have
//       been let go, never more than K KiB above its size at the end of the
//       first minute. Between renewals the lists grow with every colour by
//       design, so samples there say little about what is kept. A run with no
//       renewal after the first minute is judged on its largest sample.
//     --memory report-only: the resident size is reported but not judged (a
//       sanitizer's own bookkeeping grows with the run)
//     --network own: run in a network namespace of its own with a default
//       route through loopback (root only), so the application posts on any
//       machine, with or without a network
// Exit status 0 when every check holds.
#include <unistd.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimer>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <limits>
#include <map>
#include <optional>
#include <vector>

#include "tests/pen/FakeBluezProcess.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/support/PostOverlap.h"
#include "tests/support/XvfbServer.h"
#include "tests/telemetry/TelemetryTestServer.h"

namespace tw::soak {
namespace {

const QString kPenAddress = QStringLiteral("AA:BB:CC:DD:EE:02");
const QString kPhotoshop =
    QStringLiteral(R"(C:\Program Files\Adobe\Adobe Photoshop 2021\Photoshop.exe)");
constexpr int kStartUpColour = 0xFAFAFA;
constexpr int kFirstPickColour = 0xC00000;  // picks count up from here; pen colours from 1
constexpr int kColourIntervalMs = 20;       // 50 Hz
constexpr int kLinkEventIntervalMs = 5000;
constexpr int kPickIntervalMs = 29000;
constexpr qint64 kSettleMs = 60000;  // the memory judged after it
constexpr int kMemoryIntervalMs = 5000;
constexpr int kStallMs = 15000;  // no sign of life for this long is a hang

// One colour the application handled, as its lines show it: a pen colour is
// printed when decoded and again once handled (its count falls between the
// two); a screen or start-up colour is printed once, on the main thread, right
// after its count.
struct Handled {
  int colour = 0;
  qint64 first = 0;  // line numbers
  qint64 last = 0;
  bool complete = false;
};

struct LinkEvent {
  QString kind;
  qint64 atMs = 0;
  int connectionsBefore = 0;
  std::optional<qint64> reconnectedAfterMs;
};

bool isHexColour(const QString& line) {
  static const QRegularExpression hex(QStringLiteral("^[0-9A-F]{6}$"));
  return hex.match(line).hasMatch();
}

struct SoakOptions {
  double hours = 24;
  double scale = 0.005;
  double minutes = 0;  // real time; 0: run `hours` of the application's timers
  QString reportPath;
  QString transcriptPath;
  bool judgeMemory = true;
  int pickIntervalMs = kPickIntervalMs;
  int linkIntervalMs = kLinkEventIntervalMs;  // 0: no link upsets
  qint64 memoryGrowthKiB = 0;                 // 0: the second-half check
};

class Soak : public QObject {
 public:
  explicit Soak(const SoakOptions& options)
      : hours_(options.hours),
        scale_(options.scale),
        minutes_(options.minutes),
        reportPath_(options.reportPath),
        transcriptPath_(options.transcriptPath),
        judgeMemory_(options.judgeMemory),
        pickIntervalMs_(options.pickIntervalMs),
        linkIntervalMs_(options.linkIntervalMs),
        memoryGrowthKiB_(options.memoryGrowthKiB),
        nextLinkMs_(options.linkIntervalMs),
        nextPickMs_(options.pickIntervalMs / 2) {}

  int run() {
    if (!setUp()) return finishWith(false);
    clock_.start();
    QTimer::singleShot(0, this, [this] { tick(); });
    const int code = QCoreApplication::exec();
    return code;
  }

 private:
  // Set-up: the X server, the bus, the pen, the server, "Photoshop", then the
  // application; the run starts once the pen is connected and notifying.
  bool setUp() {
    if (!transcriptPath_.isEmpty()) {
      transcriptFile_.setFileName(transcriptPath_);
      if (!transcriptFile_.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
        return fail(
            QStringLiteral("set-up: cannot write the transcript to %1").arg(transcriptPath_));
      transcript_.emplace(&transcriptFile_);
    }
    if (!xvfb_.isRunning() || !home_.isValid() || !runtime_.isValid())
      return fail(QStringLiteral("set-up: Xvfb, the sandbox or the runtime folder failed"));
    fake_ = std::make_unique<testing::FakeBluez>(
        bus_.address(), QStringList{QStringLiteral("--pen"), QStringLiteral("QUILLA-Pen 02"),
                                    QStringLiteral("--interval-ms"), QStringLiteral("0")});
    if (!fake_->ready()) return fail(QStringLiteral("set-up: the fake BlueZ did not start"));
    server_ = std::make_unique<testing::TelemetryTestServer>(certificates_);
    server_->command(QStringLiteral("fail-every 3"));

    testing::endWithParent(photoshop_);
    photoshop_.start(
        QStringLiteral("/bin/bash"),
        {QStringLiteral("-c"), QStringLiteral("exec -a '%1' sleep 100000").arg(kPhotoshop)});
    photoshop_.waitForStarted();

    QProcessEnvironment env = xvfb_.environment();
    home_.applyTo(env);
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime_.path());
    env.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), bus_.address());
    env.insert(QStringLiteral("TINTWELL_TELEMETRY_URL"), server_->baseUrl());
    env.insert(QStringLiteral("TINTWELL_TELEMETRY_CA"), certificates_.caPath());
    env.insert(QStringLiteral("TINTWELL_TIME_SCALE"), QString::number(scale_));
    app_.setProcessEnvironment(env);
    testing::endWithParent(app_);
    connect(&app_, &QProcess::readyReadStandardOutput, this, &Soak::readLines);
    connect(&app_, &QProcess::readyReadStandardError, this,
            [this] { stderr_ += app_.readAllStandardError(); });
    app_.start(qEnvironmentVariable("TINTWELL_BIN", QStringLiteral(TINTWELL_BIN_DEFAULT)), {});
    if (!app_.waitForStarted()) return fail(QStringLiteral("set-up: tintwell did not start"));
    pid_ = app_.processId();
    QElapsedTimer waited;
    waited.start();
    const QString notifyOn = QStringLiteral("StartNotify ") + kPenAddress + QStringLiteral(" 1F16");
    while (connections_ == 0 || !fake_->calls().contains(notifyOn)) {
      if (waited.hasExpired(20000)) return fail(QStringLiteral("set-up: the pen never connected"));
      app_.waitForReadyRead(50);
      readLines();
    }
    return true;
  }

  static QByteArray packet(int colour) {
    const char bytes[] = {1, char(colour >> 16), char(colour >> 8), char(colour)};
    return QByteArray(bytes, 4);
  }

  // The driver's loop, every 20 ms: a pen colour, then whatever is due.
  void tick() {
    const qint64 now = clock_.elapsed();
    if (app_.state() == QProcess::NotRunning) {
      fail(QStringLiteral("tintwell ended during the run (exit status %1)").arg(app_.exitCode()));
      return wrapUp();
    }
    if (now - lastLineMs_ > kStallMs) {
      fail(QStringLiteral("tintwell printed nothing for %1 s while the pen sent colours")
               .arg(kStallMs / 1000));
      return wrapUp();
    }
    if (now >= durationMs()) return quitApplication();

    ++attempts_;
    const int colour = nextPenColour_;
    if (fake_->sendColor(kPenAddress, packet(colour))) {
      sent_.push_back(colour);
      ++nextPenColour_;
    }
    driveLink(now);
    drivePick(now);
    sampleAfterRenewal(now);
    if (now >= nextMemoryMs_) {
      sampleMemory(now);
      collectPosts();  // keeps the server's event list short
      nextMemoryMs_ = now + kMemoryIntervalMs;
    }
    const qint64 spent = clock_.elapsed() - now;
    QTimer::singleShot(std::max<qint64>(0, kColourIntervalMs - spent), this, [this] { tick(); });
  }

  qint64 durationMs() const {
    if (minutes_ > 0) return static_cast<qint64>(minutes_ * 60000.0);
    return static_cast<qint64>(hours_ * 3600.0 * 1000.0 * scale_);
  }

  // The link: one upset every five seconds, in turn, each waited out until the
  // pen is connected again.
  void driveLink(qint64 now) {
    if (!links_.empty() && !links_.back().reconnectedAfterMs) {
      LinkEvent& event = links_.back();
      if (connections_ > event.connectionsBefore && (pendingPowerOnMs_ || pendingBluezMs_)) {
        fail(QStringLiteral("the pen came back on its own after: %1").arg(event.kind));
        return wrapUp();
      }
      if (connections_ > event.connectionsBefore) {
        event.reconnectedAfterMs = now - event.atMs;
        nextLinkMs_ = now + linkIntervalMs_;
      } else if (now - event.atMs > kStallMs) {
        fail(QStringLiteral("the pen did not come back within %1 s after: %2")
                 .arg(kStallMs / 1000)
                 .arg(event.kind));
        return wrapUp();
      }
      if (pendingPowerOnMs_ && now >= *pendingPowerOnMs_) {
        pendingPowerOnMs_.reset();
        powerCycle();
      }
      if (pendingBluezMs_ && now >= *pendingBluezMs_) {
        pendingBluezMs_.reset();
        fake_->call(QStringLiteral("AcquireBluez"));
      }
      return;
    }
    // None so late that the pen could not be back before the run ends.
    if (linkIntervalMs_ <= 0 || now < nextLinkMs_ || now + 3000 > durationMs()) return;
    LinkEvent event;
    event.atMs = now;
    event.connectionsBefore = connections_;
    switch (links_.size() % 3) {
      case 0:  // the pen drops; a second later Bluetooth is switched off and on
        event.kind = QStringLiteral("pen dropped, then Bluetooth off and on");
        fake_->call(QStringLiteral("Disconnect"), {kPenAddress});
        pendingPowerOnMs_ = now + 1000;
        break;
      case 1:
        event.kind = QStringLiteral("Bluetooth off and on");
        powerCycle();
        break;
      default:  // bluetoothd restarting: its links drop and its name goes
        event.kind = QStringLiteral("BlueZ restarted");
        fake_->call(QStringLiteral("Disconnect"), {kPenAddress});
        fake_->call(QStringLiteral("ReleaseBluez"));
        pendingBluezMs_ = now + 300;
        break;
    }
    links_.push_back(event);
  }

  void powerCycle() {
    fake_->call(QStringLiteral("SetPowered"), {QStringLiteral("hci0"), false});
    fake_->call(QStringLiteral("SetPowered"), {QStringLiteral("hci0"), true});
  }

  // A dropper pick: a new root colour, Ctrl+D on the panel, a click far from
  // it, and the picked colour's line.
  void drivePick(qint64 now) {
    if (pickState_ == PickState::Idle) {
      if (now < nextPickMs_) return;
      const int colour = kFirstPickColour + picksStarted_;
      xvfb_.run(
          QStringLiteral("xsetroot"),
          {QStringLiteral("-solid"), QStringLiteral("#%1").arg(colour, 6, 16, QLatin1Char('0'))});
      const QString window =
          QString::fromLatin1(xvfb_
                                  .run(QStringLiteral("xdotool"),
                                       {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                        QStringLiteral("--name"), QStringLiteral("^Tintwell$")})
                                  .trimmed()
                                  .split('\n')
                                  .value(0));
      if (window.isEmpty()) {
        nextPickMs_ = now + 500;  // the panel is away (a pick is still ending)
        return;
      }
      armedLinesBefore_ = cursorChanged_;
      xvfb_.run(QStringLiteral("xdotool"),
                {QStringLiteral("windowfocus"), QStringLiteral("--sync"), window});
      xvfb_.run(QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("ctrl+d")});
      pickState_ = PickState::Armed;
      pickSinceMs_ = now;
      ++picksStarted_;
      return;
    }
    if (pickState_ == PickState::Armed && cursorChanged_ > armedLinesBefore_) {
      xvfb_.run(QStringLiteral("xdotool"),
                {QStringLiteral("mousemove"), QStringLiteral("900"), QStringLiteral("700"),
                 QStringLiteral("click"), QStringLiteral("1")});
      pickState_ = PickState::Clicked;
      pickSinceMs_ = now;
      return;
    }
    if (pickState_ == PickState::Clicked && pickedColours_ == picksStarted_) {
      pickTimesMs_.push_back(now - pickSinceMs_);
      pickState_ = PickState::Idle;
      nextPickMs_ = now + pickIntervalMs_;
      return;
    }
    if (now - pickSinceMs_ > kStallMs) {
      fail(QStringLiteral("a dropper pick did not complete within %1 s").arg(kStallMs / 1000));
      wrapUp();
    }
  }

  void sampleMemory(qint64 now) {
    if (const auto kib = residentKiB()) memory_.push_back({now, *kib});
  }

  // A second after the record was renewed: the old one is gone by then.
  void sampleAfterRenewal(qint64 now) {
    if (!renewedMs_ || now - *renewedMs_ < 1000) return;
    renewedMs_.reset();
    if (const auto kib = residentKiB()) afterRenewals_.push_back({now, *kib});
  }

  void readLines() {
    while (app_.canReadLine()) {
      QString line = QString::fromUtf8(app_.readLine());
      line.chop(1);
      handleLine(line);
    }
  }

  void handleLine(const QString& line) {
    const qint64 n = ++lineCount_;
    if (transcript_) *transcript_ << n << ": " << line << '\n';
    lastLineMs_ = clock_.isValid() ? clock_.elapsed() : 0;
    if (isHexColour(line)) {
      const int colour = line.toInt(nullptr, 16);
      const bool fromPen = colour >= 1 && colour < kFirstPickColour;
      if (fromPen) {
        auto [it, inserted] = penIndex_.try_emplace(colour, handled_.size());
        if (inserted) {
          handled_.push_back({colour, n, n, false});
        } else {
          Handled& h = handled_[it->second];
          if (h.complete) ++repeatedPenLines_;
          h.last = n;
          h.complete = true;
        }
      } else {
        handled_.push_back({colour, n, n, true});
        if (colour == kStartUpColour && ++startUpLines_ > 1) {
          reappearances_.push_back(n);
          if (clock_.isValid()) renewedMs_ = clock_.elapsed();
        }
        if (colour >= kFirstPickColour && colour < kStartUpColour) ++pickedColours_;
      }
      return;
    }
    posts_.read(line);
    if (line == QLatin1String("Internet Connection Available!")) {
      sendStarts_.push_back(n);
    } else if (line == QStringLiteral(" API 完成 || Api Type : colorType")) {
      colourSuccesses_.push_back(n);
      if (clock_.isValid()) {
        renewedMs_ = clock_.elapsed();
        if (!firstPostMs_) firstPostMs_ = *renewedMs_;
      }
    } else if (line.startsWith(QLatin1String("error "))) {
      ++transportErrors_;
    } else if (line == QLatin1String("Log Timer is trigger")) {
      ++ticks_;
    } else if (line.startsWith(QLatin1String("Batter Level: "))) {
      ++batteryReads_;
    } else if (line == QLatin1String("connected hihi")) {
      ++connections_;
    } else if (line == QLatin1String("cursor changed")) {
      ++cursorChanged_;
    } else if (line == QLatin1String("Final bye bye ~")) {
      farewellLine_ = n;
    } else if (line == QLatin1String("I will send the color log!")) {
      quitSendLine_ = n;
    }
  }

  void collectPosts() {
    for (const testing::ServerEvent& e : server_->takeEvents()) {
      if (e.event != QLatin1String("request")) continue;
      ++requests_;
      if (!e.answeredOk()) ++failedRequests_;
      if (e.path != QLatin1String("/api/color_usage")) continue;
      const QJsonObject body = QJsonDocument::fromJson(e.body).object();
      if (transcript_)
        *transcript_ << "-- after line " << lineCount_ << ", a colour post answered "
                     << (e.answeredOk() ? "ok" : "with an error") << ": "
                     << body.value(QStringLiteral("colors_device")).toString() << ' '
                     << body.value(QStringLiteral("colors_screen")).toString() << '\n';
      std::vector<int> accepted;  // both lists: one copy of one record
      for (const char* kind : {"device", "screen"}) {
        QString list = body.value(QStringLiteral("colors_") + QLatin1String(kind)).toString();
        list.remove(u'[').remove(u']');
        const QStringList entries = list.split(u',', Qt::SkipEmptyParts);
        if (entries.size() !=
            body.value(QStringLiteral("counter_") + QLatin1String(kind)).toInteger())
          ++inconsistentBodies_;
        if (!e.answeredOk()) continue;
        for (const QString& entry : entries) {
          const int colour = entry.mid(1).toInt(nullptr, 16);
          ++delivered_[colour];
          accepted.push_back(colour);
        }
      }
      if (!accepted.empty()) acceptedRecords_.push_back(std::move(accepted));
    }
  }

  void quitApplication() {
    if (quitting_) return;
    quitting_ = true;
    runMs_ = clock_.elapsed();
    sampleMemory(runMs_);
    // The pen stops; once every colour it sent has been handled (at most 30 s)
    // the last posts are let through, so every colour still counted can be
    // found, and the application is asked to quit.
    QElapsedTimer drained;
    drained.start();
    while (unhandled() > 0 && !drained.hasExpired(30000)) {
      app_.waitForReadyRead(100);
      readLines();
    }
    server_->command(QStringLiteral("fail-every 0"));
    QTimer::singleShot(500, this, [this] {
      ::kill(static_cast<pid_t>(pid_), SIGTERM);
      QElapsedTimer waited;
      waited.start();
      if (!app_.waitForFinished(60000))
        fail(QStringLiteral("tintwell did not end within 60 s of SIGTERM"));
      quitMs_ = waited.elapsed();
      readLines();
      wrapUp();
    });
  }

  // Where each counted colour went.
  void account() {
    // Every send made two requests; the server reports each a moment after
    // the application has its answer.
    QElapsedTimer waited;
    waited.start();
    collectPosts();
    while (requests_ < 2 * static_cast<int>(sendStarts_.size()) && !waited.hasExpired(10000)) {
      server_->waitForRequests(1, 200);
      collectPosts();
    }
    // Every handled colour but the very first (the start-up colour) was
    // counted: each differs from the one before it.
    if (handled_.empty() || handled_.front().colour != kStartUpColour)
      fail(QStringLiteral("the first colour handled was not the start-up colour"));
    findAcceptedSpans();
    std::map<int, std::vector<const Handled*>> counted;
    for (size_t i = 1; i < handled_.size(); ++i)
      counted[handled_[i].colour].push_back(&handled_[i]);
    for (const auto& [colour, times] : delivered_)
      if (!counted.count(colour)) ++deliveredNeverCounted_;

    for (const auto& [colour, occurrences] : counted) {
      const int got = delivered_.count(colour) ? delivered_.at(colour) : 0;
      const int expected = static_cast<int>(occurrences.size());
      if (got > expected) {
        postedTwice_ += got - expected;
        continue;
      }
      deliveredOnce_ += got;
      int missing = expected - got;
      // The missing ones must each sit in a loss window; take the occurrences
      // that do, latest first, as the ones lost.
      int renewal = 0, reappearance = 0, quit = 0;
      for (auto it = occurrences.rbegin(); it != occurrences.rend() && missing > 0; ++it) {
        const Handled& h = **it;
        if (!h.complete) continue;
        switch (lossOf(h)) {
          case Loss::Unexplained:
            continue;
          case Loss::ToRenewal:
            ++renewal;
            break;
          case Loss::ToReappearance:
            ++reappearance;
            break;
          case Loss::AtQuit:
            ++quit;
            break;
        }
        --missing;
      }
      lostToRenewal_ += renewal;
      lostToReappearance_ += reappearance;
      lostAtQuit_ += quit;
      unexplained_ += missing;
      if (missing > 0 && unexplainedExamples_.size() < 10)
        unexplainedExamples_ << QStringLiteral("#%1").arg(colour, 6, 16, QLatin1Char('0'));
    }
    neverHandled_ = unhandled();
  }

  int unhandled() const {
    int n = 0;
    for (int colour : sent_)
      n += !penIndex_.count(colour) || !handled_[penIndex_.at(colour)].complete;
    return n;
  }

  // Each accepted post's span: the second lines of the pen colours it
  // carried, in order. A post carries one copy of one record, from its first
  // count to the send's close; the pen's colours are counted and their second
  // lines printed on one thread, in order. So a pen colour whose lines lie
  // between two pen colours of one accepted post was counted into that
  // record before the close, and had to be carried with them.
  void findAcceptedSpans() {
    acceptedSpans_.clear();
    for (const std::vector<int>& record : acceptedRecords_) {
      Span span;
      for (int colour : record) {
        if (const auto it = penIndex_.find(colour); it != penIndex_.end())
          span.lines.push_back(handled_[it->second].last);
        if (colour == kStartUpColour) span.returned = true;
      }
      std::sort(span.lines.begin(), span.lines.end());
      if (!span.lines.empty()) acceptedSpans_.push_back(std::move(span));
    }
  }

  // Whether an accepted post must have carried the colour. Another thread
  // (the panel's return, a pick) counts a colour a moment before printing it,
  // and the pen may count one in between, either side of a record's end: so
  // such a colour is inside a post's span only with two of its pen colours
  // on each side.
  bool insideAcceptedSpan(const Handled& h) const {
    const bool fromPen = penIndex_.count(h.colour) > 0;
    const auto margin = static_cast<std::ptrdiff_t>(fromPen ? 1 : 2);
    for (const Span& span : acceptedSpans_) {
      const std::vector<qint64>& lines = span.lines;
      const auto before = std::lower_bound(lines.begin(), lines.end(), h.first) - lines.begin();
      const auto after = lines.end() - std::upper_bound(lines.begin(), lines.end(), h.last);
      if (before >= margin && after >= margin) return true;
    }
    return false;
  }

  // How a counted colour no accepted post carried was lost: with its record,
  // replaced by a successful colour post or the panel's return, or at the
  // quit. One inside an accepted post's span was not lost by any of these.
  // The next accepted post after the colour began its record after it, so
  // the record was replaced between the two: one of those events must lie
  // there (a record replaced otherwise, say on a failed post, is a fault).
  // Lines place an event against a count only roughly (the record is
  // replaced on another thread), so the window opens at the colour handled
  // before, and the kind of loss may be the next event's.
  enum class Loss {
    Unexplained,     // inside an accepted post's span, or the record outlived the run
    ToRenewal,       // a successful colour post replaced the record
    ToReappearance,  // the panel's return replaced the record
    AtQuit,          // the last record, when the quit did not wait for its post
  };
  Loss lossOf(const Handled& h) const {
    if (insideAcceptedSpan(h)) return Loss::Unexplained;
    const auto handledBefore =
        std::lower_bound(handled_.begin(), handled_.end(), h.first,
                         [](const Handled& x, qint64 line) { return x.first < line; });
    const qint64 opens = handledBefore == handled_.begin() ? 0 : std::prev(handledBefore)->last;
    qint64 closes = std::numeric_limits<qint64>::max();
    bool closedByReturn = false;
    for (const Span& span : acceptedSpans_)
      if (span.lines.front() > h.last && span.lines.front() < closes) {
        closes = span.lines.front();
        closedByReturn = span.returned;  // posts with the same first colour share a record
      }
    const auto next = [opens](const std::vector<qint64>& events) {
      const auto it = std::upper_bound(events.begin(), events.end(), opens);
      return it == events.end() ? std::numeric_limits<qint64>::max() : *it;
    };
    const qint64 renewal = next(colourSuccesses_);
    const qint64 reappearance = next(reappearances_);
    if (std::min(renewal, reappearance) < closes) {
      if (renewal < reappearance) return Loss::ToRenewal;
      return Loss::ToReappearance;
    }
    // The pen's thread may count a colour into the fresh record before the
    // start-up colour is printed; the post lists the start-up colour.
    if (closedByReturn) return Loss::ToReappearance;
    if (closes != std::numeric_limits<qint64>::max()) return Loss::Unexplained;
    return quitEndedBeforeItsColourPost() ? Loss::AtQuit : Loss::Unexplained;
  }

  // The quit ends on the first answer when an earlier success left both
  // done-flags set: "Final bye bye ~" may then come while the quit's colour
  // post is still out, and the post ends with the application.
  bool quitEndedBeforeItsColourPost() const {
    if (!quitSendLine_ || !farewellLine_) return false;
    return std::none_of(colourSuccesses_.begin(), colourSuccesses_.end(),
                        [this](qint64 x) { return x > *quitSendLine_ && x < *farewellLine_; });
  }

  void wrapUp() {
    if (wrappedUp_) return;
    wrappedUp_ = true;
    if (app_.state() != QProcess::NotRunning) {
      // Still running here means it hung: its threads' stacks say where.
      QProcess gdb;
      gdb.start(QStringLiteral("gdb"),
                {QStringLiteral("-p"), QString::number(pid_), QStringLiteral("-batch"),
                 QStringLiteral("-ex"), QStringLiteral("thread apply all bt")});
      if (gdb.waitForFinished(60000)) stacks_ = QString::fromUtf8(gdb.readAllStandardOutput());
      app_.kill();
      app_.waitForFinished(5000);
    }
    photoshop_.kill();
    photoshop_.waitForFinished(5000);
    account();
    report();
    QCoreApplication::exit(ok() ? 0 : 1);
  }

  bool ok() const {
    return failures_.isEmpty() && farewellLine_ && app_.exitStatus() == QProcess::NormalExit &&
           app_.exitCode() == 0 && unexplained_ == 0 &&
           (postedTwice_ == 0 || posts_.overlappingSends() > 0) && deliveredNeverCounted_ == 0 &&
           neverHandled_ == 0 && inconsistentBodies_ == 0 && repeatedPenLines_ == 0 &&
           (!judgeMemory_ ||
            (memoryGrowthKiB_ > 0 ? memoryGrowthAfterSettlingKiB() < memoryGrowthKiB_
                                  : memoryFlat()));
  }

  // The sample at the end of the first minute, and the largest rise above it
  // a second after a renewal of the record (any sample if there was none).
  const std::pair<qint64, qint64>* settledSample() const {
    for (const auto& m : memory_)
      if (m.first >= kSettleMs) return &m;
    return nullptr;
  }
  qint64 memoryGrowthAfterSettlingKiB() const {
    const auto* settled = settledSample();
    if (settled == nullptr) return std::numeric_limits<qint64>::max();
    qint64 peak = settled->second;
    bool renewed = false;
    for (const auto& m : afterRenewals_) {
      if (m.first < settled->first) continue;
      renewed = true;
      peak = std::max(peak, m.second);
    }
    if (!renewed)
      for (const auto& m : memory_)
        if (m.first >= settled->first) peak = std::max(peak, m.second);
    return peak - settled->second;
  }

  std::optional<qint64> residentKiB() const {
    QFile status(QStringLiteral("/proc/%1/status").arg(pid_));
    if (!status.open(QIODevice::ReadOnly)) return std::nullopt;
    for (const QByteArray& line : status.readAll().split('\n'))
      if (line.startsWith("VmRSS:")) return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    return std::nullopt;
  }

  // Flat: over the second half of the run the resident size grew by less
  // than 4 MiB (a leak of even 100 bytes a colour would show several times that).
  bool memoryFlat() const {
    if (memory_.size() < 4) return false;
    return memoryGrowthSecondHalfKiB() < 4096;
  }
  qint64 memoryGrowthSecondHalfKiB() const {
    const auto& mid = memory_[memory_.size() / 2];
    qint64 peak = mid.second;
    for (size_t i = memory_.size() / 2; i < memory_.size(); ++i)
      peak = std::max(peak, memory_[i].second);
    return peak - mid.second;
  }

  bool fail(const QString& why) {
    failures_ << why;
    return false;
  }
  int finishWith(bool good) {
    report();
    return good ? 0 : 1;
  }

  void report() {
    QString r;
    auto line = [&r](const QString& text) { r += text + u'\n'; };
    const double timerHours = runMs_ / 1000.0 / scale_ / 3600.0;
    line(QStringLiteral("# Desktop soak"));
    line(QString());
    line(QStringLiteral("- result: **%1**")
             .arg(ok() ? QStringLiteral("pass") : QStringLiteral("FAIL")));
    for (const QString& f : failures_) line(QStringLiteral("- failure: ") + f);
    line(QStringLiteral("- time scale %1: %2 s of real time = %3 hours of the application's timers")
             .arg(scale_)
             .arg(runMs_ / 1000.0, 0, 'f', 1)
             .arg(timerHours, 0, 'f', 2));
    line(QStringLiteral("- telemetry ticks: %1 (%2 due, one per 600 s of timer time; the timer "
                        "restarts with each return of the panel); battery reads: %3; sends (ticks "
                        "with colours counted, and the quit): %4; requests: %5, of which "
                        "answered with an error: %6; transport errors seen by the application: %7")
             .arg(ticks_)
             .arg(static_cast<qint64>(timerHours * 6))
             .arg(batteryReads_)
             .arg(sendStarts_.size())
             .arg(requests_)
             .arg(failedRequests_)
             .arg(transportErrors_));
    line(QStringLiteral("- pen colours sent (50 Hz while notifying): %1 of %2 attempts; handled by "
                        "the application: %3; never handled: %4")
             .arg(sent_.size())
             .arg(attempts_)
             .arg(sent_.size() - neverHandled_)
             .arg(neverHandled_));
    line(QStringLiteral("- dropper picks: %1 completed of %2 started; click to picked colour: "
                        "median %3 ms")
             .arg(pickTimesMs_.size())
             .arg(picksStarted_)
             .arg(median(pickTimesMs_)));
    int reconnected = 0;
    std::vector<qint64> reconnectMs;
    std::map<QString, std::pair<int, int>> byKind;
    for (const LinkEvent& e : links_) {
      ++byKind[e.kind].second;
      if (e.reconnectedAfterMs) {
        ++reconnected;
        ++byKind[e.kind].first;
        reconnectMs.push_back(*e.reconnectedAfterMs);
      }
    }
    line(QStringLiteral("- link upsets: %1; the pen connected again after %2 of them (median %3 ms "
                        "after the upset); connections in all: %4")
             .arg(links_.size())
             .arg(reconnected)
             .arg(median(reconnectMs))
             .arg(connections_));
    for (const auto& [kind, counts] : byKind)
      line(QStringLiteral("  - %1: %2 of %3").arg(kind).arg(counts.first).arg(counts.second));
    line(QStringLiteral("- counted colours (every handled colour but the start-up one): %1")
             .arg(handled_.empty() ? 0 : handled_.size() - 1));
    line(QStringLiteral("  - in exactly one accepted post: %1").arg(deliveredOnce_));
    line(QStringLiteral("  - lost while a successful post was out (the record is renewed on "
                        "success): %1")
             .arg(lostToRenewal_));
    line(QStringLiteral("  - lost when the panel came back after a pick (fresh records): %1")
             .arg(lostToReappearance_));
    line(QStringLiteral("  - lost at the quit, which ended on the first answer while the "
                        "quit's colour post was still out: %1")
             .arg(lostAtQuit_));
    line(QStringLiteral("  - unaccounted for: %1 %2")
             .arg(unexplained_)
             .arg(unexplainedExamples_.join(u' ')));
    line(QStringLiteral("  - accepted more than once: %1 (allowed only when a send started while a "
                        "post was still out, which the sender does not prevent: %5 such sends); "
                        "accepted but never counted: %2; bodies whose count differs from their "
                        "list: %3; pen colours handled twice: %4")
             .arg(postedTwice_)
             .arg(deliveredNeverCounted_)
             .arg(inconsistentBodies_)
             .arg(repeatedPenLines_)
             .arg(posts_.overlappingSends()));
    if (!memory_.empty()) {
      qint64 peak = 0;
      for (const auto& m : memory_) peak = std::max(peak, m.second);
      line(QStringLiteral("- resident memory (VmRSS, every %1 s): first %2 MiB, at mid-run %3 MiB, "
                          "last %4 MiB, peak %5 MiB; growth over the second half %6 KiB (%7)")
               .arg(kMemoryIntervalMs / 1000)
               .arg(memory_.front().second / 1024.0, 0, 'f', 1)
               .arg(memory_[memory_.size() / 2].second / 1024.0, 0, 'f', 1)
               .arg(memory_.back().second / 1024.0, 0, 'f', 1)
               .arg(peak / 1024.0, 0, 'f', 1)
               .arg(memoryGrowthSecondHalfKiB())
               .arg(!judgeMemory_  ? QStringLiteral("not judged")
                    : memoryFlat() ? QStringLiteral("flat")
                                   : QStringLiteral("NOT flat")));
    }
    if (memoryGrowthKiB_ > 0) {
      const auto* settled = settledSample();
      line(QStringLiteral("- resident memory after the first minute: %1 MiB at %2 s, last %3 MiB; "
                          "largest rise above the first minute's a second after a renewal of "
                          "the colour record %4 KiB, last sample minus first minute %5 KiB "
                          "(limit %6 KiB: %7)")
               .arg(settled ? settled->second / 1024.0 : 0.0, 0, 'f', 2)
               .arg(settled ? settled->first / 1000.0 : 0.0, 0, 'f', 0)
               .arg(memory_.empty() ? 0.0 : memory_.back().second / 1024.0, 0, 'f', 2)
               .arg(settled ? memoryGrowthAfterSettlingKiB() : -1)
               .arg(settled && !memory_.empty() ? memory_.back().second - settled->second : -1)
               .arg(memoryGrowthKiB_)
               .arg(!judgeMemory_ ? QStringLiteral("not judged")
                    : memoryGrowthAfterSettlingKiB() < memoryGrowthKiB_
                        ? QStringLiteral("held")
                        : QStringLiteral("EXCEEDED")));
    }
    // The first post makes what no earlier step needs (the network thread, the
    // first TLS connection); from then on only a leak or fragmentation grows.
    if (memoryGrowthKiB_ > 0 && firstPostMs_) {
      const std::pair<qint64, qint64>* from = nullptr;
      for (const auto& m : afterRenewals_)
        if (m.first > *firstPostMs_) {
          from = &m;
          break;
        }
      if (from != nullptr && from != &afterRenewals_.back())
        line(QStringLiteral("- after the first successful post (at %1 s): %2 MiB a second after "
                            "the renewal at %3 s, %4 MiB after the last at %5 s: %6 KiB")
                 .arg(*firstPostMs_ / 1000)
                 .arg(from->second / 1024.0, 0, 'f', 2)
                 .arg(from->first / 1000)
                 .arg(afterRenewals_.back().second / 1024.0, 0, 'f', 2)
                 .arg(afterRenewals_.back().first / 1000)
                 .arg(afterRenewals_.back().second - from->second));
    }
    if (!afterRenewals_.empty()) {
      QStringList series;
      for (const auto& [ms, kib] : afterRenewals_)
        series << QStringLiteral("%1 s: %2").arg(ms / 1000).arg(kib / 1024.0, 0, 'f', 2);
      line(QStringLiteral("  - VmRSS a second after each renewal of the colour record (MiB): ") +
           series.join(QStringLiteral(", ")));
    }
    if (!memory_.empty()) {
      QStringList series;
      qint64 nextMs = 0;
      for (const auto& [ms, kib] : memory_) {
        if (ms < nextMs) continue;
        series << QString::number(kib / 1024.0, 'f', 2);
        nextMs = ms + 60000;
      }
      line(QStringLiteral("  - VmRSS each minute of the run (MiB): ") +
           series.join(QStringLiteral(", ")));
      if (memoryGrowthKiB_ > 0) {
        line(QStringLiteral("  - every sample (seconds into the run, VmRSS KiB):\n```"));
        for (const auto& [ms, kib] : memory_)
          line(QStringLiteral("%1 %2").arg(ms / 1000.0, 0, 'f', 1).arg(kib));
        line(QStringLiteral("```"));
      }
    }
    line(QStringLiteral("- quit (SIGTERM) to exit: %1 ms, exit status %2, \"Final bye bye ~\" %3")
             .arg(quitMs_)
             .arg(app_.exitStatus() == QProcess::NormalExit ? app_.exitCode() : -1)
             .arg(farewellLine_ ? QStringLiteral("printed") : QStringLiteral("MISSING")));
    if (!stacks_.isEmpty())
      line(QStringLiteral("- its threads when it hung:\n```\n") + stacks_ + QStringLiteral("```"));
    if (!stderr_.isEmpty())
      line(QStringLiteral("- tintwell's standard error: ") +
           QString::fromUtf8(stderr_.right(2000)).trimmed());
    std::fputs(r.toUtf8().constData(), stdout);
    std::fflush(stdout);
    if (!reportPath_.isEmpty()) {
      QFile file(reportPath_);
      if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) file.write(r.toUtf8());
    }
  }

  static qint64 median(std::vector<qint64> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
  }

  double hours_;
  double scale_;
  double minutes_;
  QString reportPath_;
  QString transcriptPath_;
  QFile transcriptFile_;
  std::optional<QTextStream> transcript_;
  bool judgeMemory_;
  int pickIntervalMs_;
  int linkIntervalMs_;
  qint64 memoryGrowthKiB_;

  testing::XvfbServer xvfb_{
      {QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("1024x768x24")}};
  testing::PrivateBus bus_;
  testing::BridgeSandbox home_;
  QTemporaryDir runtime_;
  testing::TestCertificates certificates_;
  std::unique_ptr<testing::FakeBluez> fake_;
  std::unique_ptr<testing::TelemetryTestServer> server_;
  QProcess photoshop_;
  QProcess app_;
  qint64 pid_ = 0;
  QByteArray stderr_;
  QString stacks_;
  QElapsedTimer clock_;

  // The driver's side.
  int nextPenColour_ = 1;
  qint64 attempts_ = 0;
  std::vector<int> sent_;
  std::vector<LinkEvent> links_;
  qint64 nextLinkMs_;
  std::optional<qint64> pendingPowerOnMs_;
  std::optional<qint64> pendingBluezMs_;
  enum class PickState { Idle, Armed, Clicked } pickState_ = PickState::Idle;
  qint64 nextPickMs_;
  qint64 pickSinceMs_ = 0;
  int picksStarted_ = 0;
  int armedLinesBefore_ = 0;
  std::vector<qint64> pickTimesMs_;
  qint64 nextMemoryMs_ = 0;
  std::vector<std::pair<qint64, qint64>> memory_;         // (ms, KiB)
  std::vector<std::pair<qint64, qint64>> afterRenewals_;  // (ms, KiB)
  std::optional<qint64> renewedMs_;
  std::optional<qint64> firstPostMs_;  // the first successful colour post
  bool quitting_ = false;
  bool wrappedUp_ = false;
  qint64 runMs_ = 0;
  qint64 quitMs_ = 0;
  QStringList failures_;

  // What the application printed.
  qint64 lineCount_ = 0;
  qint64 lastLineMs_ = 0;
  std::vector<Handled> handled_;
  std::map<int, size_t> penIndex_;
  std::vector<qint64> reappearances_;
  // Each send's "Internet Connection Available!" (before the lists are
  // closed). Its answers are not placed: with two sends out at once a
  // completion does not say which send it answers.
  std::vector<qint64> sendStarts_;
  std::vector<qint64> colourSuccesses_;  // the colour posts' "API 完成" lines
  int startUpLines_ = 0;
  int pickedColours_ = 0;
  int connections_ = 0;
  int cursorChanged_ = 0;
  int transportErrors_ = 0;
  testing::PostOverlap posts_;
  int ticks_ = 0;
  int batteryReads_ = 0;
  int repeatedPenLines_ = 0;
  std::optional<qint64> farewellLine_;  // "Final bye bye ~"
  std::optional<qint64> quitSendLine_;  // "I will send the color log!"

  // What the server received, and the accounting.
  std::map<int, int> delivered_;
  std::vector<std::vector<int>> acceptedRecords_;  // each accepted colour post's colours
  struct Span {
    std::vector<qint64> lines;  // its pen colours' second lines, in order
    bool returned = false;      // it lists the start-up colour: the panel's return began it
  };
  std::vector<Span> acceptedSpans_;  // see findAcceptedSpans()
  int requests_ = 0;
  int failedRequests_ = 0;
  int inconsistentBodies_ = 0;
  int deliveredOnce_ = 0;
  int lostToRenewal_ = 0;
  int lostToReappearance_ = 0;
  int lostAtQuit_ = 0;
  int unexplained_ = 0;
  QStringList unexplainedExamples_;
  int postedTwice_ = 0;
  int deliveredNeverCounted_ = 0;
  int neverHandled_ = 0;
};

}  // namespace
}  // namespace tw::soak

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  tw::soak::SoakOptions options;
  bool ownNetwork = false;
  bool valid = true;
  const QStringList args = QCoreApplication::arguments();
  for (int i = 1; i + 1 < args.size(); i += 2) {
    const QString& value = args[i + 1];
    if (args[i] == QLatin1String("--hours"))
      options.hours = value.toDouble();
    else if (args[i] == QLatin1String("--scale"))
      options.scale = value.toDouble();
    else if (args[i] == QLatin1String("--minutes"))
      options.minutes = value.toDouble();
    else if (args[i] == QLatin1String("--report"))
      options.reportPath = value;
    else if (args[i] == QLatin1String("--transcript"))
      options.transcriptPath = value;
    else if (args[i] == QLatin1String("--memory"))
      options.judgeMemory = value != QLatin1String("report-only");
    else if (args[i] == QLatin1String("--network"))
      ownNetwork = value == QLatin1String("own");
    else if (args[i] == QLatin1String("--pick-every"))
      options.pickIntervalMs = static_cast<int>(value.toDouble(&valid) * 1000.0);
    else if (args[i] == QLatin1String("--link-every"))
      options.linkIntervalMs = static_cast<int>(value.toDouble(&valid) * 1000.0);
    else if (args[i] == QLatin1String("--memory-growth-kib"))
      options.memoryGrowthKiB = value.toLongLong(&valid);
    else
      valid = false;
    if (!valid) break;
  }
  if (!valid || options.hours <= 0 || options.scale <= 0 || options.minutes < 0 ||
      options.pickIntervalMs <= 0 || options.linkIntervalMs < 0 || options.memoryGrowthKiB < 0) {
    std::fputs(
        "usage: desktop_soak [--hours H] [--scale S] [--minutes M] [--report FILE]\n"
        "                    [--transcript FILE] [--memory report-only] [--network own]\n"
        "                    [--pick-every SECONDS] [--link-every SECONDS]\n"
        "                    [--memory-growth-kib K]\n",
        stderr);
    return 2;
  }
  // Before the servers and the application start: they share it.
  if (ownNetwork) {
    const QString why = tw::testing::enterOnlineNetworkNamespace();
    if (!why.isEmpty()) {
      std::fprintf(stderr, "desktop_soak: %s\n", qPrintable(why));
      return 2;
    }
  }
  tw::soak::Soak soak(options);
  return soak.run();
}
