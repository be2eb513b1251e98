// A source whose Qt is not that of the library.
#include <QString>

#undef QT_VERSION_MAJOR
#define QT_VERSION_MAJOR OTHER_QT
#include "JobManager.h"
