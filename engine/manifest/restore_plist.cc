#include "engine/manifest/stripper3.h"

namespace velmar {

int32_t Stripper3::stripRestorePlist(Value& entry) { return 0; }

}  // namespace velmar
