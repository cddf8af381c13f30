#pragma once

#include <QString>
#include <vector>

#include "color/ColorNotations.h"
#include "color/ColorStruct.h"

namespace tw {

// What the main colour panel shows. The desktop draws it with widgets; the
// headless listener shows nothing. Called on the main thread only.
class PanelView {
 public:
  virtual ~PanelView() = default;
  // The crown and its button tinted with the colour, and "#" + hex.
  virtual void showColor(const ColorStruct& color) = 0;
  // The RGB, CMYK, HSB and Lab texts, in that order.
  virtual void showColorTexts(const AllColor& notations) = 0;
  // The connection indicator's image: "BT on" or "BT off".
  virtual void setConnectionImage(const QString& imageName) = 0;
  // What the pen link is doing, in words ("Connected", "Bluetooth off", ...):
  // the connection indicator's tooltip. Nothing by default.
  virtual void showConnectionState(const QString& text) { (void)text; }
  // The pen was connected (true) or went away (false), after the indicator
  // changed. Nothing by default.
  virtual void penLinkChanged(bool connected) { (void)connected; }
  // A battery level the pen gave (0 to 100), after the battery image changed.
  // Nothing by default.
  virtual void showBatteryLevel(qint64 level) { (void)level; }
  // The logic has just put preferences in force (at start and at each change).
  // Nothing by default.
  virtual void preferencesApplied() {}
  virtual void setBatteryShown(bool shown) = 0;
  // One of "10", "20", ... "100".
  virtual void setBatteryImage(const QString& imageName) = 0;
  // A short message about a design application that did not simply take the
  // colour ("Inkscape: nothing selected ..."). The listener prints nothing:
  // its failure lines are already on standard output.
  virtual void showHostMessage(const QString& text) { (void)text; }
  // A new colour was taken (pushed and counted; never the start-up colour or
  // a repeat), after it was shown. Nothing by default.
  virtual void colorAccepted(const ColorStruct& color) { (void)color; }
  // A problem with the history's database, one line ("History: ..."), already
  // on standard error. Nothing by default.
  virtual void showHistoryMessage(const QString& text) { (void)text; }
  // With the recent-colours option on: the last accepted colours, newest
  // first, at most four; called again with none when the option goes off.
  virtual void showRecentColors(const std::vector<ColorStruct>& colors) { (void)colors; }
  // With the names option on: the nearest named colour ("tomato (ΔE00 1.2)");
  // an empty text when the option goes off.
  virtual void showColorName(const QString& text) { (void)text; }
};

// Shows nothing: the listener's panel.
class HeadlessPanelView : public PanelView {
 public:
  void showColor(const ColorStruct&) override {}
  void showColorTexts(const AllColor&) override {}
  void setConnectionImage(const QString&) override {}
  void setBatteryShown(bool) override {}
  void setBatteryImage(const QString&) override {}
};

}  // namespace tw
