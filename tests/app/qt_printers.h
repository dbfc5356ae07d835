// Readable GoogleTest output for Qt values (a QStringList prints as a list of
// these).
#ifndef ZEV_TESTS_APP_QT_PRINTERS_H_
#define ZEV_TESTS_APP_QT_PRINTERS_H_

#include <QString>
#include <ostream>

inline void PrintTo(const QString& text, std::ostream* out) {
  *out << '"' << text.toStdString() << '"';
}

#endif  // ZEV_TESTS_APP_QT_PRINTERS_H_
