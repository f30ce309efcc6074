#include "fnd/String.h"

const FND::String FND_NULL_STRING;
