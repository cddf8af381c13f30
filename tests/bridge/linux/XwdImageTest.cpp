#include "tests/support/XwdImage.h"

#include <gtest/gtest.h>

#include <QStandardPaths>

#include "tests/support/XvfbServer.h"

namespace tw::testing {
namespace {

struct Layout {
  int bitsPerPixel = 32;
  int bytesPerLine = 0;  // 0: width x bytes per pixel
  bool lsbFirst = true;
  quint32 masks[3] = {0xff0000, 0x00ff00, 0x0000ff};
};

void be32(QByteArray& out, quint32 v) {
  for (int shift : {24, 16, 8, 0}) out.push_back(char((v >> shift) & 0xff));
}

// An XWD file as xwd writes one, `pixels` given as 0xRRGGBB row by row.
QByteArray dump(int width, int height, const std::vector<quint32>& pixels, const Layout& l) {
  const QByteArray name("root\0", 5);
  const int bytes = l.bitsPerPixel / 8;
  const int bytesPerLine = l.bytesPerLine ? l.bytesPerLine : width * bytes;
  // A colour map the reader must step over (xwd writes one even for TrueColor).
  const int colours = 4;
  QByteArray out;
  const quint32 header[25] = {quint32(100 + name.size()),
                              7,
                              2,
                              24,
                              quint32(width),
                              quint32(height),
                              0,
                              l.lsbFirst ? 0u : 1u,
                              32,
                              0,
                              32,
                              quint32(l.bitsPerPixel),
                              quint32(bytesPerLine),
                              4,  // TrueColor
                              l.masks[0],
                              l.masks[1],
                              l.masks[2],
                              8,
                              256,
                              quint32(colours),
                              quint32(width),
                              quint32(height),
                              0,
                              0,
                              0};
  for (quint32 v : header) be32(out, v);
  out += name;
  out += QByteArray(colours * 12, '\x77');
  auto place = [&](quint32 rgb, int c) {
    // Channel value to the mask's position (8-bit channels only here).
    int shift = 0;
    while (!((l.masks[c] >> shift) & 1)) ++shift;
    return ((rgb >> (16 - 8 * c)) & 0xff) << shift;
  };
  for (int y = 0; y < height; ++y) {
    QByteArray row;
    for (int x = 0; x < width; ++x) {
      const quint32 rgb = pixels[size_t(y * width + x)];
      const quint32 value = place(rgb, 0) | place(rgb, 1) | place(rgb, 2);
      for (int i = 0; i < bytes; ++i) {
        const int shift = l.lsbFirst ? 8 * i : 8 * (bytes - 1 - i);
        row.push_back(char((value >> shift) & 0xff));
      }
    }
    row.append(QByteArray(bytesPerLine - row.size(), '\x5a'));
    out += row;
  }
  return out;
}

const std::vector<quint32> kPixels = {0x123456, 0xff0000, 0x00ff00, 0x123456, 0x0000ff, 0xfefdfc};

void expectPixels(const std::optional<QImage>& image) {
  ASSERT_TRUE(image.has_value());
  ASSERT_EQ(image->width(), 3);
  ASSERT_EQ(image->height(), 2);
  for (int i = 0; i < 6; ++i)
    EXPECT_EQ(image->pixel(i % 3, i / 3) & 0xffffff, kPixels[size_t(i)]) << i;
  EXPECT_EQ(countPixels(*image, 0x123456), 2);
  EXPECT_EQ(countPixels(*image, 0x654321), 0);
}

TEST(XwdImageTest, ThirtyTwoBitsAPixel) {
  Layout layout;
  expectPixels(imageFromXwd(dump(3, 2, kPixels, layout)));
}

TEST(XwdImageTest, TwentyFourBitsAPixelInRowsPaddedToFourBytesAPixel) {
  // What Xvfb at depth 24 gave: the header says 24, the rows are 4 x width.
  Layout layout;
  layout.bitsPerPixel = 24;
  layout.bytesPerLine = 3 * 4;
  expectPixels(imageFromXwd(dump(3, 2, kPixels, layout)));
}

TEST(XwdImageTest, MostSignificantByteFirst) {
  Layout layout;
  layout.lsbFirst = false;
  expectPixels(imageFromXwd(dump(3, 2, kPixels, layout)));
  layout.bitsPerPixel = 24;
  expectPixels(imageFromXwd(dump(3, 2, kPixels, layout)));
}

TEST(XwdImageTest, BlueInTheHighBits) {
  Layout layout;
  layout.masks[0] = 0x0000ff;
  layout.masks[2] = 0xff0000;
  expectPixels(imageFromXwd(dump(3, 2, kPixels, layout)));
}

TEST(XwdImageTest, WhatIsNotADumpIsRefused) {
  const QByteArray good = dump(3, 2, kPixels, Layout());
  ASSERT_TRUE(imageFromXwd(good).has_value());
  EXPECT_FALSE(imageFromXwd(QByteArray()).has_value());
  EXPECT_FALSE(imageFromXwd(good.left(good.size() - 1)).has_value());
  QByteArray version = good;
  version[7] = 6;
  EXPECT_FALSE(imageFromXwd(version).has_value());
  QByteArray sixteen = good;
  sixteen[4 * 11 + 3] = 16;
  EXPECT_FALSE(imageFromXwd(sixteen).has_value());
  // Rows of 8 bytes cannot hold 3 pixels of 32 bits: reading them would run
  // past the end of the data on the last row.
  QByteArray narrow = good.left(good.size() - 2 * 12) + QByteArray(2 * 8, '\0');
  narrow[4 * 12 + 3] = 8;
  EXPECT_FALSE(imageFromXwd(narrow).has_value());
}

TEST(XwdImageTest, ARealRootWindowOfOneColour) {
  for (const char* tool : {"Xvfb", "xwd", "xsetroot"}) {
    if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
      GTEST_SKIP() << tool << " is not installed (x11-apps, x11-xserver-utils, xvfb)";
  }
  XvfbServer xvfb({QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("320x200x24")});
  ASSERT_TRUE(xvfb.isRunning());
  int status = -1;
  xvfb.run(QStringLiteral("xsetroot"), {QStringLiteral("-solid"), QStringLiteral("#1e90a7")},
           &status);
  ASSERT_EQ(status, 0);
  const auto image = imageFromXwd(
      xvfb.run(QStringLiteral("xwd"), {QStringLiteral("-root"), QStringLiteral("-silent")}));
  ASSERT_TRUE(image.has_value());
  EXPECT_EQ(image->width(), 320);
  EXPECT_EQ(image->height(), 200);
  EXPECT_EQ(countPixels(*image, 0x1e90a7), 320 * 200);
}

}  // namespace
}  // namespace tw::testing
