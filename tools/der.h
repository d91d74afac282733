#pragma once

#include "base/der.h"

namespace quelta::der {
using quelta::concat;
}
