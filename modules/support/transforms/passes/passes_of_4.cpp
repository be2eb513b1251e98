// The loops of transforms for any processor.
#include "transform_loops.h"

const transforms::Passes transforms::passesOfFour = transforms::loops<4>;
