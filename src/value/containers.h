// Containers that change their kind.
#pragma once

#include "value/variable.h"

/// Turns an Array into a Table with the positions as keys, nil elements included; leaves every
/// other value alone.
void promoteArrayVariableToTable(Variable& value);
