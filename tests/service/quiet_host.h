#pragma once

#include "service/switch_binding.h"

/// A module host that agrees to everything and does nothing: the base of those of the tests.
class QuietHost : public ISwitch {
  public:
    virtual ~QuietHost() = default;  // behind the slots of the interface

    void Reserved0() override {}
    void Release() override {}
    bool LoadModules(SwitchLoadParams* /*params*/) override { return true; }
    bool UnloadModules(uint32_t /*flags*/) override { return true; }
    void StartModules() override {}
    void StopModules() override {}
    void Reserved6() override {}
    void Reserved7() override {}
    void Reserved8() override {}
    void Reserved9() override {}
    void Reserved10() override {}
    void Reserved11() override {}
    void Reserved12() override {}
    void Reserved13() override {}
    void Reserved14() override {}
    void Reserved15() override {}
    void NotifyService(uint32_t /*code*/, uintptr_t /*first*/, uintptr_t /*second*/) override {}
};
