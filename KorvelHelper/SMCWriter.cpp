#include "SMCWriter.h"
