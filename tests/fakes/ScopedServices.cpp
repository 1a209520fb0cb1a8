#include "fakes/ScopedServices.h"
