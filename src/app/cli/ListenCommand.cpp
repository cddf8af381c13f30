#include "app/cli/ListenCommand.h"

#include <sys/socket.h>
#include <unistd.h>
#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "app/NotificationCenter.h"
#include "app/Notifications.h"
#include "color/ColorStruct.h"
#include "common/Fatal.h"
#include "common/Log.h"
#include "common/TimeScale.h"
#include "pen/CoreQuilla.h"
#include "pen/Mailbox.h"

namespace tw {

namespace {

int signalPipe[2] = {-1, -1};

void onTerminationSignal(int) {
  const char byte = 1;
  // Nothing else is safe in a signal handler; a full pipe already wakes the loop.
  [[maybe_unused]] const ssize_t n = ::write(signalPipe[1], &byte, 1);
}

// The battery watch of the panel, on the main thread: a first reading 3 seconds
// after a connection, then one every 180 seconds until the pen goes. As in the
// panel, a second connection without a disconnection in between leaves the
// earlier timer running.
class BatteryWatch {
 public:
  explicit BatteryWatch(pen::CoreQuilla& quilla) : quilla_(quilla) {}
  void connected() {
    timer_ = new QTimer(&owner_);
    QObject::connect(timer_, &QTimer::timeout, [this] { quilla_.getBatteryLevel(); });
    timer_->start(tw::scaledMs(180.0));
    QTimer::singleShot(tw::scaledMs(3.0), &owner_, [this] { quilla_.getBatteryLevel(); });
  }
  void disconnected() {
    if (timer_ != nullptr) timer_->stop();
  }

 private:
  pen::CoreQuilla& quilla_;
  QObject owner_;
  QTimer* timer_ = nullptr;
};

}  // namespace

void installListenObservers(pen::CoreQuilla& quilla) {
  // Both live as long as the process, like the observers that use them.
  static auto* mainQueue = new pen::Mailbox;
  static auto* watch = new BatteryWatch(quilla);
  NotificationCenter& center = NotificationCenter::defaultCenter();
  center.addObserver(notification::newColor(), [](const Notification& n) {
    if (const auto* color = std::any_cast<ColorStruct>(&n.object)) logLine(color->colorHex);
  });
  center.addObserver(notification::connectedQuilla(),
                     [](const Notification&) { mainQueue->post([] { watch->connected(); }); });
  center.addObserver(notification::disconnected(),
                     [](const Notification&) { mainQueue->post([] { watch->disconnected(); }); });
}

void installListenTermination(QCoreApplication& app) {
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) != 0)
    fatalStop("cannot create the signal pipe");
  auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &app);
  QObject::connect(notifier, &QSocketNotifier::activated, &app, [&app] {
    char byte;
    [[maybe_unused]] const ssize_t n = ::read(signalPipe[0], &byte, 1);
    app.quit();
  });
  struct sigaction action {};
  action.sa_handler = onTerminationSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

int runListenCommand(int argc, char** argv) {
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--help") == 0) {
      std::puts(
          "Usage: tintwell listen\n"
          "Runs the pen link without the window and prints the hex text of every new colour.");
      return 0;
    }
    std::fprintf(stderr, "tintwell listen: unexpected argument '%s'\n", argv[i]);
    return 2;
  }
  int qtArgc = 1;
  char name[] = "tintwell";
  char* qtArgv[] = {name, nullptr};
  QCoreApplication app(qtArgc, qtArgv);
  installListenTermination(app);
  pen::CoreQuilla quilla;
  installListenObservers(quilla);
  quilla.setupCentralManager();
  // The start-up colour, as the panel posts it when it appears.
  NotificationCenter::defaultCenter().post(
      notification::newColor(), ColorStruct::fromChannels(250, 250, 250),
      UserInfo{{notification::quillaKey(), QStringLiteral("NewColor")}});
  return app.exec();
}

}  // namespace tw
