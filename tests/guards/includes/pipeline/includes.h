// Includes that the pipeline may not have, for the test of the include check.
#pragma once

#include "match/trie.h"
#include "method3/m3_codec.h"
#include <format>
#include <frontend/run.h>
