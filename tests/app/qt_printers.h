// Readable GoogleTest output for Qt values.
#ifndef ZEV_TESTS_APP_QT_PRINTERS_H_
#define ZEV_TESTS_APP_QT_PRINTERS_H_

#include <QString>
#include <QStringList>
#include <ostream>

inline void PrintTo(const QString& text, std::ostream* out) {
  *out << '"' << text.toStdString() << '"';
}

inline void PrintTo(const QStringList& list, std::ostream* out) {
  *out << '[' << list.join(", ").toStdString() << ']';
}

#endif  // ZEV_TESTS_APP_QT_PRINTERS_H_
