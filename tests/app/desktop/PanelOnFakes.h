#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "app/AppDelegate.h"
#include "app/PanelLogic.h"
#include "app/desktop/PanelWindow.h"
#include "app/desktop/ViewController_plus.h"
#include "bridge/AlertPresenter.h"
#include "bridge/HostDescription.h"
#include "bridge/RunningApplications.h"
#include "tests/color/ScreenPickTestSupport.h"
#include "tests/support/IdleTransport.h"

namespace tw::testing {

// The panel's parts as the desktop makes them but for the bridge (no design
// application running), the alerts (silent), the sender (idle) and the screen
// (the given fakes); the pen link is `central`'s.
inline PanelParts panelPartsOnFakes(pen::CentralFactory central,
                                    std::shared_ptr<FakeClickMonitor> monitor,
                                    std::shared_ptr<FakePointer> pointer,
                                    std::shared_ptr<FakeSampler> sampler) {
  PanelParts parts;
  parts.central = std::move(central);
  parts.host = std::make_shared<WineHostDescription>(
      std::make_shared<FixedApplicationLister>(std::vector<RunningApplication>{}));
  parts.alerts = std::make_shared<SilentAlertPresenter>();
  parts.transport = std::make_shared<IdleTransport>();
  parts.colorHelper = [monitor = std::move(monitor), pointer = std::move(pointer),
                       sampler = std::move(sampler)] {
    return std::make_unique<ColorHelper>(ScreenBackend{monitor, pointer, sampler});
  };
  return parts;
}

// The panel made of `parts`, loaded and shown in `window`, as the desktop
// starts it. The window owns the panel.
inline ViewController_plus* showPanel(AppDelegate& delegate, PanelParts parts,
                                      std::unique_ptr<PanelWindow>& window) {
  auto* panel = new ViewController_plus(delegate, std::move(parts));
  window = std::make_unique<PanelWindow>(delegate, panel);
  panel->viewDidLoad();
  window->show();
  return panel;
}

}  // namespace tw::testing
