#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>
#include <memory>
#include <mutex>
#include <utility>

namespace tw {

// Local date and time as "yyyy/MM/dd HH:mm:ss" (24-hour clock, user's zone).
QString currentTimeText();

// How many colours came from the pen and from the screen in a session, and which.
// Shared by reference between owners on different threads, so every access goes
// through the record's own lock: read() takes a copy, update() edits in place.
class ColorRecord {
 public:
  struct Fields {
    QString session_begin;
    QString session_end;
    bool session_full = false;
    QString vender = QStringLiteral("Orlo");  // the key is spelled so on purpose
    bool debug = false;
    QString os = QStringLiteral("Mac");
    QString app;
    QString version = QStringLiteral("0.0.0");
    qint64 counter_screen = 0;
    qint64 counter_device = 0;
    QString colors_screen;  // ",#1A2B3C,#FFFFFF" while growing, "[...]" once closed
    QString colors_device;
  };

  Fields read() const {
    std::lock_guard lock(mutex_);
    return fields_;
  }
  template <typename Edit>
  decltype(auto) update(Edit&& edit) {
    std::lock_guard lock(mutex_);
    return std::forward<Edit>(edit)(fields_);
  }
  // One pretty-printed JSON object, keys in declared order.
  QByteArray toJson() const;

 private:
  mutable std::mutex mutex_;
  Fields fields_;
};

// How many colours were pushed into Photoshop and Illustrator.
class ApplicationRecord {
 public:
  struct Fields {
    QString session_begin;
    QString session_end;
    bool session_full = false;
    QString os = QStringLiteral("Mac");
    bool debug = false;
    qint64 PS = 0;
    qint64 AI = 0;
  };

  Fields read() const {
    std::lock_guard lock(mutex_);
    return fields_;
  }
  template <typename Edit>
  decltype(auto) update(Edit&& edit) {
    std::lock_guard lock(mutex_);
    return std::forward<Edit>(edit)(fields_);
  }
  QByteArray toJson() const;

 private:
  mutable std::mutex mutex_;
  Fields fields_;
};

// Whoever counts pushes into the application record (the bridge's Commander).
// The sender reaches the record through this alone: it sends the record the
// pushes are counted in, and replaces it with a fresh one after a successful
// post. Both may be called from any thread.
class ApplicationUsageCounters {
 public:
  virtual ~ApplicationUsageCounters() = default;
  virtual std::shared_ptr<ApplicationRecord> tempApplicationRecord() const = 0;
  virtual void setTempApplicationRecord(std::shared_ptr<ApplicationRecord> record) = 0;
};

QByteArray toJson(const ColorRecord::Fields& record);
QByteArray toJson(const ApplicationRecord::Fields& record);

// "#" and "%02X" of red, green and blue: the form a colour takes in the lists.
QString colorListEntry(qint64 red, qint64 green, qint64 blue);

// Adds one to a counter; an overflow stops the process.
void incrementCounter(qint64& counter);

}  // namespace tw
