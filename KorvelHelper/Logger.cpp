#include "Logger.h"
