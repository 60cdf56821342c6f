#include "engine/manifest/stripper3.h"

namespace velmar {

int32_t Stripper3::updateFilelistForUnpersonalizedInstall(Value& entry) { return 0; }

}  // namespace velmar
