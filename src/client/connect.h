#pragma once

#include "client/reply.h"
#include "qvclient/connect.h"
