#include "PowerUIChargeBackend.h"
