// `tintwell csv` end to end in this process (runCsvCommand): the table comes
// from standard input or from a FILE argument, with the separator and header
// options in either spelling; the JSON written to standard output is read
// back with QJsonDocument and compared with the reader's own table.
//
// Input: byte 0 bits: 0 FILE argument (else standard input), 1 --separator,
// 2 --headers, 3 "--name=value" (else two words), 4 "--" before FILE; then a
// length-prefixed separator, a length-prefixed header list, and the file.
#include <unistd.h>

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringDecoder>
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "StdioRedirect.h"
#include "library/CSwiftV.h"
#include "tools/CsvCommand.h"

namespace tw {
namespace {

using testing::FuzzInput;

// An argument word: what a command line can carry (no NUL).
QByteArray word(QByteArray bytes) {
  bytes.replace('\0', "");
  return bytes;
}

QStringList stringsOf(const QJsonValue& value) {
  QStringList out;
  const QJsonArray array = value.toArray();
  for (const QJsonValue& item : array) {
    TW_FUZZ_CHECK(item.isString());
    out.append(item.toString());
  }
  return out;
}

void runOne(FuzzInput& in) {
  const std::uint8_t mode = in.byte();
  const bool fromFile = (mode & 1) != 0;
  const bool giveSeparator = (mode & 2) != 0;
  const bool giveHeaders = (mode & 4) != 0;
  const bool joinedSpelling = (mode & 8) != 0;
  const bool endOfOptions = (mode & 16) != 0;
  const QByteArray separatorWord = word(in.lengthPrefixed(6));
  const QByteArray headersWord = word(in.lengthPrefixed(32));
  const QByteArray content = in.rest();

  const int file = testing::memoryFile(content);
  std::vector<std::string> args;
  const auto option = [&](const char* name, const QByteArray& value) {
    if (joinedSpelling) {
      args.push_back(std::string(name) + "=" + value.toStdString());
    } else {
      args.push_back(name);
      args.push_back(value.toStdString());
    }
  };
  if (giveSeparator) option("--separator", separatorWord);
  if (giveHeaders) option("--headers", headersWord);
  if (endOfOptions) args.push_back("--");
  if (fromFile) args.push_back("/proc/self/fd/" + std::to_string(file));
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);

  const int out = testing::memoryFile({});
  int status = 0;
  {
    const testing::Redirect input(STDIN_FILENO, file);
    const testing::Redirect output(STDOUT_FILENO, out);
    status = runCsvCommand(static_cast<int>(args.size()), argv.data());
  }
  const QByteArray written = testing::readWhole(out);
  ::close(out);
  ::close(file);

  // The table as the tool is documented to read it.
  QStringDecoder decoder(QStringDecoder::Utf8);
  const QString text = decoder.decode(content);
  const QString separator = giveSeparator ? QString::fromUtf8(separatorWord) : QStringLiteral(",");
  std::optional<QStringList> headers;
  if (giveHeaders)
    headers = headersWord.isEmpty() ? QStringList() : QString::fromUtf8(headersWord).split(u',');
  QString normalized = text;
  normalized.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
  if (!headers && CSwiftV::splitLines(normalized).isEmpty()) {
    TW_FUZZ_CHECK(status == 1 && written.isEmpty());
    return;
  }
  TW_FUZZ_CHECK(status == 0);
  const CSwiftV table(text, separator, headers);

  // One line of JSON holding exactly that table.
  TW_FUZZ_CHECK(written.endsWith('\n') && written.count('\n') == 1);
  QJsonParseError error{};
  const QJsonDocument document = QJsonDocument::fromJson(written, &error);
  TW_FUZZ_CHECK(error.error == QJsonParseError::NoError && document.isObject());
  const QJsonObject json = document.object();
  TW_FUZZ_CHECK(json.value(QStringLiteral("columnCount")).toInteger(-1) == table.columnCount());
  TW_FUZZ_CHECK(stringsOf(json.value(QStringLiteral("headers"))) == table.headers());
  const QJsonArray rows = json.value(QStringLiteral("rows")).toArray();
  TW_FUZZ_CHECK(rows.size() == table.rows().size());
  for (qsizetype i = 0; i < rows.size(); ++i) TW_FUZZ_CHECK(stringsOf(rows[i]) == table.rows()[i]);
  const QJsonArray keyed = json.value(QStringLiteral("keyedRows")).toArray();
  TW_FUZZ_CHECK(keyed.size() == table.keyedRows()->size());
  for (qsizetype i = 0; i < keyed.size(); ++i) {
    TW_FUZZ_CHECK(keyed[i].isObject());
    const QJsonObject row = keyed[i].toObject();
    const CSwiftV::KeyedRow& expected = (*table.keyedRows())[i];
    TW_FUZZ_CHECK(row.size() == expected.size());
    for (auto it = expected.constBegin(); it != expected.constEnd(); ++it) {
      // Found by walking the keys: Qt 6.4's QJsonObject::value() misses some
      // keys that are there (one of U+FFFD, '{' and U+00C3 was enough).
      bool same = false;
      for (auto member = row.constBegin(); member != row.constEnd(); ++member)
        if (member.key() == it.key()) same = member.value() == QJsonValue(it.value());
      TW_FUZZ_CHECK(same);
    }
  }
}

}  // namespace
}  // namespace tw

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tw::testing::FuzzInput in(data, size);
  tw::runOne(in);
  return 0;
}
