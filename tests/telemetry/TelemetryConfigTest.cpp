#include "telemetry/TelemetryConfig.h"

#include <gtest/gtest.h>

#include <QSettings>
#include <QTemporaryDir>

namespace tw {
namespace {

// Each case runs in its own process; QSettings reads XDG_CONFIG_HOME on first use.
class TelemetryConfigTest : public ::testing::Test {
 protected:
  TelemetryConfigTest() {
    qputenv("XDG_CONFIG_HOME", home.path().toLocal8Bit());
    qunsetenv("TINTWELL_TELEMETRY_URL");
  }
  void setSetting(const QString& value) {
    QSettings settings(QStringLiteral("Orlo"), QStringLiteral("Tintwell"));
    settings.setValue(QStringLiteral("telemetryBaseURL"), value);
    settings.sync();
  }
  QTemporaryDir home;
};

TEST_F(TelemetryConfigTest, BuildDefaultWithoutEnvironmentOrSetting) {
  EXPECT_EQ(telemetryBaseUrl(), QStringLiteral(TINTWELL_TELEMETRY_DEFAULT_URL));
}

TEST_F(TelemetryConfigTest, SettingOverridesTheBuildDefault) {
  setSetting(QStringLiteral("https://settings.example:8443"));
  EXPECT_EQ(telemetryBaseUrl(), "https://settings.example:8443");
}

TEST_F(TelemetryConfigTest, EnvironmentOverridesTheSetting) {
  setSetting(QStringLiteral("https://settings.example"));
  qputenv("TINTWELL_TELEMETRY_URL", "https://env.example");
  EXPECT_EQ(telemetryBaseUrl(), "https://env.example");
}

TEST_F(TelemetryConfigTest, EmptyEnvironmentFallsThroughToTheSetting) {
  setSetting(QStringLiteral("https://settings.example"));
  qputenv("TINTWELL_TELEMETRY_URL", "");
  EXPECT_EQ(telemetryBaseUrl(), "https://settings.example");
}

TEST_F(TelemetryConfigTest, SettingsFileIsTheUsersTintwellConf) {
  setSetting(QStringLiteral("https://settings.example"));
  EXPECT_TRUE(QFile::exists(home.filePath(QStringLiteral("Orlo/Tintwell.conf"))));
}

}  // namespace
}  // namespace tw
