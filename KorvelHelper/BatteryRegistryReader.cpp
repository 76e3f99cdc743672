#include "BatteryRegistryReader.h"
