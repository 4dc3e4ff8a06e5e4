#pragma once

#include "client/reply.h"
#include "qvclient/wire.h"
