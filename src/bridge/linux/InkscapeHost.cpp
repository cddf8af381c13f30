#include "bridge/linux/InkscapeHost.h"

#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QVariantMap>

#include "bridge/linux/HostBus.h"

namespace tw {

namespace {

const QString kService = QStringLiteral("org.inkscape.Inkscape");
const QString kApplicationPath = QStringLiteral("/org/inkscape/Inkscape");
const QString kWindowsPath = QStringLiteral("/org/inkscape/Inkscape/window");

QDBusMessage action(const QString& name, const QVariantList& parameters) {
  QDBusMessage call = QDBusMessage::createMethodCall(
      kService, kApplicationPath, QStringLiteral("org.gtk.Actions"), QStringLiteral("Activate"));
  // Parameters go as plain values: Qt wraps each in the variant the action
  // expects; a QDBusVariant here would be a variant in a variant.
  call << name << QVariant(parameters) << QVariant(QVariantMap());
  return call;
}

}  // namespace

InkscapeHost::InkscapeHost(QDBusConnection bus) : bus_(std::move(bus)) {}

InkscapeHost::~InkscapeHost() = default;

bool InkscapeHost::isHostProcess(const RunningApplication& application) const {
  return application.localizedName == QStringLiteral("inkscape");
}

std::vector<HostColor> InkscapeHost::fills(const QByteArray& svg) {
  static const QRegularExpression fill(
      QStringLiteral("fill\\s*(?::|=\\s*[\"'])\\s*#([0-9a-fA-F]{6})\\b"));
  std::vector<HostColor> colors;
  QRegularExpressionMatchIterator it = fill.globalMatch(QString::fromUtf8(svg));
  while (it.hasNext()) {
    if (auto color = HostColor::fromHex(it.next().captured(1))) colors.push_back(*color);
  }
  return colors;
}

QString InkscapeHost::exportPath() {
  if (!folder_) folder_ = privateFolder(QStringLiteral("tintwell-inkscape"));
  if (!folder_->isValid()) return {};
  return folder_->filePath(QStringLiteral("drawing.svg"));
}

PushOutcome InkscapeHost::push(const HostColor& color, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  // With no document window (the welcome screen, or every window closed)
  // there is no selection to colour.
  const QDBusMessage windows =
      callWithin(bus_,
                 QDBusMessage::createMethodCall(
                     kService, kWindowsPath, QStringLiteral("org.freedesktop.DBus.Introspectable"),
                     QStringLiteral("Introspect")),
                 deadline);
  if (std::optional<PushOutcome> failure = callFailure(windows, timeout)) return *failure;
  if (!windows.arguments().value(0).toString().contains(QStringLiteral("<node name="))) {
    return {PushStatus::NothingSelected, QStringLiteral("no drawing open in Inkscape")};
  }

  const QString path = exportPath();
  if (path.isEmpty()) {
    return {PushStatus::Failed, QStringLiteral("no private folder for the read-back")};
  }
  QFile::remove(path);
  const std::pair<QString, QVariantList> calls[] = {
      {QStringLiteral("object-set-property"), {QStringLiteral("fill,") + color.hex()}},
      // The export file name is forgotten after each export: set it each time.
      {QStringLiteral("export-filename"), {path}},
      {QStringLiteral("export-plain-svg"), {true}},
      {QStringLiteral("export-do"), {}},
  };
  for (const auto& [name, parameters] : calls) {
    const QDBusMessage reply = callWithin(bus_, action(name, parameters), deadline);
    if (std::optional<PushOutcome> failure = callFailure(reply, timeout)) return *failure;
  }
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) {
    return {PushStatus::Failed, QStringLiteral("the drawing could not be read back")};
  }
  const std::vector<HostColor> seen = fills(file.readAll());
  file.close();
  QFile::remove(path);
  for (const HostColor& fill : seen) {
    if (fill == color) return {PushStatus::Confirmed, {}};
  }
  return {PushStatus::NothingSelected,
          QStringLiteral("nothing selected: select a shape in Inkscape to give it the colour")};
}

std::optional<HostColor> InkscapeHost::readBack(std::chrono::milliseconds) { return std::nullopt; }

}  // namespace tw
