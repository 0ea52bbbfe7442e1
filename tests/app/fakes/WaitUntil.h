#pragma once
// The shared bounded wait under its old include path.
#include "tests/support/WaitUntil.h"
