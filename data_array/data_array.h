// The whole kerova::data layer.
#pragma once

#include "data_array/array.h"
#include "data_array/buffer.h"
#include "data_array/element_types.h"
#include "data_array/exceptions.h"
#include "data_array/function_table.h"
#include "data_array/lookup.h"
#include "data_array/raw_buffer.h"
#include "data_array/typed_array.h"
