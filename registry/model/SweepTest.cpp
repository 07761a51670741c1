#include "Reflect.h"
