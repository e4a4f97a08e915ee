// GroupUnits<Unit>: one DSP object per channel group, for effects that keep
// separate state per stereo pair and per single speaker.
//
// Rebuild() splits a channel count and mask into groups (LayoutUtils) and asks
// a factory for each group's unit; the layout owns the units through its
// clean-up hook, so a unit is deleted exactly once, with its type. Run()
// visits the groups whose channel slots lie inside the block's channel
// vector, handing the unit both channel slots (equal for a single speaker);
// groups beyond the vector (a mask that claims more speakers than the stream
// carries) and groups without a unit are left alone.
//
// Rebuild and Clear allocate and free; Update allocates only what its
// function does; Run and ForEach do neither.
#pragma once

#include <cstdint>
#include <new>
#include <vector>

#include "frame/layouts.h"
#include "framework/alloc.h"
#include "ondrel.h"

namespace ONDREL2 {

template <class Unit>
class GroupUnits {
 public:
  GroupUnits() = default;
  ~GroupUnits() { Clear(); }
  GroupUnits(const GroupUnits&) = delete;
  GroupUnits& operator=(const GroupUnits&) = delete;

  // Frees every unit and the grouping.
  void Clear() {
    delete layout_;
    layout_ = nullptr;
  }

  // Replaces the grouping with the groups of `channels` and `mask` and gives
  // each group the unit that `make(const ChannelGroup&, int32_t* status)`
  // returns. A factory that returns null leaves its group without a unit
  // (dry); a non-zero status stops the rebuild and is returned, with the
  // groups built so far kept. ONDREL_E_NOMEM when the grouping can't be
  // allocated (then there is no grouping).
  template <class Factory>
  int32_t Rebuild(int32_t channels, uint64_t mask, Factory&& make) {
    Clear();
    layout_ = NewObject<LayoutUtils>(channels, mask, &Release);
    if (layout_ == nullptr) return ONDREL_E_NOMEM;
    for (ChannelGroup& g : layout_->groups) {
      int32_t status = ONDREL_OK;
      Unit* unit = make(static_cast<const ChannelGroup&>(g), &status);
      g.context = unit;
      if (status != ONDREL_OK) return status;
    }
    return ONDREL_OK;
  }

  bool built() const { return layout_ != nullptr; }

  // Groups of the current grouping (0 without one).
  size_t Count() const { return layout_ != nullptr ? layout_->groups.size() : 0; }
  // The unit of group `i` (below Count()), or null.
  Unit* UnitAt(size_t i) const { return static_cast<Unit*>(layout_->groups[i].context); }
  // Gives group `i` (below Count()) the unit `unit`, which may be null; the
  // unit it had is deleted. For owners that fill their groups one at a time.
  void SetUnit(size_t i, Unit* unit) {
    ChannelGroup& g = layout_->groups[i];
    if (g.context == unit) return;
    Release(g.context);
    g.context = unit;
  }

  // True when a grouping exists and was built from `channels` and `mask`.
  bool Matches(int32_t channels, uint64_t mask) const {
    return layout_ != nullptr && layout_->channels == channels && layout_->layout == mask;
  }

  // Walks every group in order with its unit slot:
  // fn(Unit*& unit, const ChannelGroup&) returns a status and may fill an
  // empty slot or delete the unit and empty the slot. The first non-zero
  // status stops the walk and is returned. For effects that keep their
  // units (and their state) across a parameter change.
  template <class Fn>
  int32_t Update(Fn&& fn) {
    if (layout_ == nullptr) return ONDREL_OK;
    for (ChannelGroup& g : layout_->groups) {
      Unit* unit = static_cast<Unit*>(g.context);
      const int32_t status = fn(unit, static_cast<const ChannelGroup&>(g));
      g.context = unit;
      if (status != ONDREL_OK) return status;
    }
    return ONDREL_OK;
  }
  LayoutUtils* layout() const { return layout_; }

  // The unit of the first group that has one, or null.
  Unit* First() const {
    if (layout_ == nullptr) return nullptr;
    for (const ChannelGroup& g : layout_->groups)
      if (g.context != nullptr) return static_cast<Unit*>(g.context);
    return nullptr;
  }

  // fn(Unit&, const ChannelGroup&) for every group that has a unit.
  template <class Fn>
  void ForEach(Fn&& fn) const {
    if (layout_ == nullptr) return;
    for (const ChannelGroup& g : layout_->groups)
      if (g.context != nullptr) fn(*static_cast<Unit*>(g.context), g);
  }

  // fn(Unit&, const ChannelGroup&, int32_t first, int32_t second) for every
  // group with a unit whose slots index `available` channels; `second`
  // equals `first` for a single speaker.
  template <class Fn>
  void Run(int32_t available, Fn&& fn) const {
    if (layout_ == nullptr) return;
    for (const ChannelGroup& g : layout_->groups) {
      if (g.context == nullptr) continue;
      const int32_t first = g.first;
      const int32_t second = g.count > 1 ? g.second : g.first;
      if (first < 0 || first >= available || second < 0 || second >= available) continue;
      fn(*static_cast<Unit*>(g.context), g, first, second);
    }
  }

 private:
  // The layout's clean-up hook; also called with null for the temporary
  // record each group is copied from.
  static void Release(void* unit) { delete static_cast<Unit*>(unit); }

  LayoutUtils* layout_ = nullptr;
};

}  // namespace ONDREL2
