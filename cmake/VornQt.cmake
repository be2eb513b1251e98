# QtCore 6 or 5, whichever the host uses: sets QT_VERSION_MAJOR, finds Qt<major>::Core.

if(VORN_QT_MAJOR)
    set(QT_VERSION_MAJOR ${VORN_QT_MAJOR})
else()
    find_package(QT NAMES Qt6 Qt5 REQUIRED COMPONENTS Core)
endif()
find_package(Qt${QT_VERSION_MAJOR} REQUIRED COMPONENTS Core)
message(STATUS "Building with Qt ${Qt${QT_VERSION_MAJOR}Core_VERSION}")
