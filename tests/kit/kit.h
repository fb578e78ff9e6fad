// The test kit: fixture, spy, faults.
#ifndef KIT_KIT_H
#define KIT_KIT_H

#include "kit/engine_layer.h"
#include "kit/fault.h"
#include "kit/fixture.h"

#endif
