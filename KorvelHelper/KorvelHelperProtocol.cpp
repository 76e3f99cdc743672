#include "KorvelHelperProtocol.h"
