#include "fnd/String.h"
