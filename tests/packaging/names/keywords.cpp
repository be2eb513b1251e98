// What JobManager.h does to the names behind it, and to those of Qt.
#ifdef CASE_before
#include <QObject>
#endif
#ifdef CASE_wanted
#define VORN_QT_KEYWORDS
#endif
#include "JobManager.h"
#ifdef CASE_later
#include <QObject>
#endif

#ifdef CASE_free
#include <syncstream>

#if defined(emit) || defined(signals) || defined(slots) || defined(foreach) || defined(forever)
#error "JobManager.h has taken a name"
#endif

inline int emit(int signals)
{
    int slots = signals;
    return slots;
}
#else
// Of Qt 5, QString brings no such macros.
#if QT_VERSION_MAJOR < 6 && defined(CASE_wanted)
#include <QObject>
#endif
class Receiver
{
public slots:
    void take(int value) { emit taken(value); }
signals:
    void taken(int) {}
};
#if !defined(CASE_later) && !defined(foreach)
#error "foreach is missing"
#endif
#endif
