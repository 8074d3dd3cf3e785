#include "library/File.h"
