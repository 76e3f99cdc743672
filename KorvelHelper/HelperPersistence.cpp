#include "HelperPersistence.h"
