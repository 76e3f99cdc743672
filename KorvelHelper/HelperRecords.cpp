#include "HelperRecords.h"
