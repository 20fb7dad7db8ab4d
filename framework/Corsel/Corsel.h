#pragma once

#include "framework/Corsel/AddressFamily.h"
#include "framework/Corsel/Ip6Prefix.h"
#include "framework/Corsel/Prefix.h"
