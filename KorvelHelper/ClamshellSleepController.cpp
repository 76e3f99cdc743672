#include "ClamshellSleepController.h"
