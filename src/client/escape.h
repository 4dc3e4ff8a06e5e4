#pragma once

#include "qvclient/escape.h"
