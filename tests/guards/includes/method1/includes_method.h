// An include of another method, for the test of the include check.
#pragma once

#include "method2/m2_codec.h"
