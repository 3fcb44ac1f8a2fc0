// An include that runs up, for the test of the include check.
#pragma once

#include "pipeline/engine.h"
