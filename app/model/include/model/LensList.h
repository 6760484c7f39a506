#pragma once

#include "model/ModelState.h"
#include "model/lenses/KindsLens.h"
#include "model/lenses/LargestLens.h"
#include "model/lenses/NamesLens.h"
#include "model/lenses/ReclaimLens.h"
#include "model/lenses/UntouchedLens.h"

namespace quon {

/// Lenses as parts of the model. Each has its place in Lens (`kLens`), its observed fields and operations,
/// and `deriveLens`, which is called at the end of each operation of the model and brings its results up to
/// date.
template <typename... Each>
class LensParts : public Each... {
 protected:
  explicit LensParts(ModelState& model) : Each(model)... {}
  void deriveLenses(Lens shown) { (Each::deriveLens(shown == Each::kLens), ...); }
};

/// The lenses that there are: one row each.
using LensList = LensParts<  //
    LargestLens,             //
    KindsLens,               //
    UntouchedLens,           //
    ReclaimLens,             //
    NamesLens>;

}  // namespace quon
