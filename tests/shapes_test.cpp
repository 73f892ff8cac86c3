#include "support/tool.h"
