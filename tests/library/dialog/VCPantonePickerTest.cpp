// The library dialog on the offscreen platform, with the real notification
// centre.
#include "library/dialog/VCPantonePicker.h"

#include <gtest/gtest.h>

#include <QAbstractItemView>
#include <QDeadlineTimer>
#include <QPointer>
#include <QThread>

#include "common/TimeScale.h"
#include "events/NotificationCenter.h"
#include "events/Notifications.h"
#include "tests/support/LogCapture.h"
#include "tests/support/QtWait.h"

namespace tw {
namespace {

using testing::waitFor;

// Every "Notification_ColorLibraryChanged" of the process (observers are
// never removed, so one recorder for all tests).
std::vector<Notification>& libraryPosts() {
  static auto* posts = [] {
    auto* list = new std::vector<Notification>;
    NotificationCenter::defaultCenter().addObserver(
        notification::colorLibraryChanged(), [list](const Notification& n) { list->push_back(n); });
    return list;
  }();
  return *posts;
}

class VCPantonePickerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    qputenv("TINTWELL_TIME_SCALE", "0.1");  // 0.3 s -> 30 ms
    libraryPosts().clear();
  }
  // Shows a new dialog and chooses `row` as a user would: in the list.
  QPointer<VCPantonePicker> openAndChoose(int row) {
    QPointer<VCPantonePicker> dialog = new VCPantonePicker;
    dialog->show();
    QComboBox* combo = dialog->pantoneCombobox();
    combo->setCurrentIndex(row);
    Q_EMIT combo->activated(row);
    return dialog;
  }

  testing::LogCapture log_;
};

TEST_F(VCPantonePickerTest, EveryChoiceClosesTheDialog) {
  for (int row : {0, 3, 7}) {
    QPointer<VCPantonePicker> dialog = openAndChoose(row);
    ASSERT_TRUE(waitFor([&] { return dialog.isNull(); })) << "row " << row;
  }
}

TEST_F(VCPantonePickerTest, TheObjectIsTheRowIndexNotTheEntrysText) {
  openAndChoose(2);
  ASSERT_EQ(libraryPosts().size(), 1u);
  const Notification& posted = libraryPosts().front();
  const qint64* index = std::any_cast<qint64>(&posted.object);
  ASSERT_NE(index, nullptr);
  EXPECT_EQ(*index, 2);
  EXPECT_EQ(std::any_cast<QString>(&posted.object), nullptr);
  ASSERT_TRUE(posted.userInfo.has_value());
  EXPECT_EQ(*posted.userInfo, (UserInfo{{"Library", "Changed"}}));
  EXPECT_TRUE(log_.contains(QStringLiteral("i pick : 2")));
}

TEST_F(VCPantonePickerTest, ChoosingTheSameRowAgainAfterReopeningPostsAgain) {
  QPointer<VCPantonePicker> first = openAndChoose(1);
  ASSERT_TRUE(waitFor([&] { return first.isNull(); }));
  QPointer<VCPantonePicker> second = openAndChoose(1);
  ASSERT_TRUE(waitFor([&] { return second.isNull(); }));
  ASSERT_EQ(libraryPosts().size(), 2u);
  EXPECT_EQ(std::any_cast<qint64>(libraryPosts()[1].object), 1);
}

TEST_F(VCPantonePickerTest, TheListOpensByItselfShortlyAfterTheDialogAppears) {
  QPointer<VCPantonePicker> dialog = new VCPantonePicker;
  QComboBox* combo = dialog->pantoneCombobox();
  // Started before show(): on a loaded machine show() itself can take longer
  // than any slack given after it.
  QDeadlineTimer notBefore(scaledMs(0.3) - 5);
  dialog->show();
  EXPECT_FALSE(combo->view()->isVisible());
  ASSERT_TRUE(waitFor([&] { return combo->view()->isVisible(); }));
  EXPECT_TRUE(notBefore.hasExpired());
  EXPECT_EQ(combo->count(), VCPantonePicker::libraryNames().size());
  EXPECT_EQ(combo->currentIndex(), -1);
  delete dialog;
}

TEST_F(VCPantonePickerTest, AComboBoxGoneBeforeTheListOpensIsNotOpened) {
  QPointer<VCPantonePicker> dialog = new VCPantonePicker;
  dialog->show();
  delete dialog->pantoneCombobox();
  // The delayed opening finds no combo box and does nothing.
  QThread::msleep(static_cast<unsigned long>(scaledMs(0.3)) + 20);
  QCoreApplication::processEvents();
  EXPECT_TRUE(dialog->isVisible());
  EXPECT_TRUE(libraryPosts().empty());
  delete dialog;
}

TEST(VCPantonePickerDeathTest, AChoiceWithoutTheComboBoxStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        VCPantonePicker dialog;
        dialog.setPantoneCombobox(nullptr);
        dialog.comboBoxSelectionDidChange();
      },
      "combo box");
}

TEST(VCPantonePickerDeathTest, LoadingWithoutTheComboBoxStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        VCPantonePicker dialog;
        dialog.setPantoneCombobox(nullptr);
        dialog.viewDidLoad();
      },
      "combo box");
}

}  // namespace
}  // namespace tw
