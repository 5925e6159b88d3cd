#ifndef TESTS_SUPPORT_PUNYCODE_H
#define TESTS_SUPPORT_PUNYCODE_H

#include <cstdint>
#include <string_view>
#include <vector>

#include "support/utf8model.h"

namespace support {

using points = std::vector<uint32_t>;

struct punycode_sample {
    const char *name;
    const char *utf8;
    const char *punycode;
};

/* RFC 3492, section 7.1. The one capital digit of the Russian sample, which carries a case flag, is
 * a small one here. */
inline const punycode_sample kPunycodeSamples[] = {
    {"Arabic", "ليهمابتكلموشعربي؟", "egbpdaj6bu4bxfgehfvwxn"},
    {"ChineseSimplified", "他们为什么不说中文", "ihqwcrb4cv8a8dqg056pqjye"},
    {"ChineseTraditional", "他們爲什麽不說中文", "ihqwctvzc91f659drss3x8bo0yb"},
    {"Czech", "Pročprostěnemluvíčesky", "Proprostnemluvesky-uyb24dma41a"},
    {"Hebrew", "למההםפשוטלאמדבריםעברית", "4dbcagdahymbxekheh6e0a7fei0b"},
    {"Hindi", "यहलोगहिन्दीक्योंनहींबोलसकतेहैं", "i1baa7eci9glrd9b2ae1bj0hfcgg6iyaf8o0a1dig0cd"},
    {"Japanese", "なぜみんな日本語を話してくれないのか", "n8jok5ay5dzabd5bym9f0cm5685rrjetr6pdxa"},
    {"Korean", "세계의모든사람들이한국어를이해한다면얼마나좋을까",
     "989aomsvi5e83db1d2a355cv1e0vak1dwrv93d5xbh15a0dt30a5jpsd879ccm6fea98c"},
    {"Russian", "почемужеонинеговорятпорусски", "b1abfaaepdrnnbgefbadotcwatmq2g4l"},
    {"Spanish", "PorquénopuedensimplementehablarenEspañol",
     "PorqunopuedensimplementehablarenEspaol-fmd56a"},
    {"Vietnamese", "TạisaohọkhôngthểchỉnóitiếngViệt",
     "TisaohkhngthchnitingVit-kjcr8268qyxafd2f1b9g"},
    {"Class3B", "3年B組金八先生", "3B-ww4c5e180e575a65lsy2b"},
    {"SuperMonkeys", "安室奈美恵-with-SUPER-MONKEYS", "-with-SUPER-MONKEYS-pc58ag80a8qai00g7n9n"},
    {"HelloAnotherWay", "Hello-Another-Way-それぞれの場所",
     "Hello-Another-Way--fc4qua05auwb3674vfr0b"},
    {"UnderOneRoof", "ひとつ屋根の下2", "2-u9tlzr9756bt3uc0v"},
    {"FiveSecondsBefore", "MajiでKoiする5秒前", "MajiKoi5-783gue6qz075azm5e"},
    {"PuffyDeRumba", "パフィーdeルンバ", "de-jg4avhby1noc0d"},
    {"AtThatSpeed", "そのスピードで", "d9juau41awczczp"},
    {"AsciiAlone", "-> $1.00 <-", "-> $1.00 <--"},
};

/* The code points of UTF-8 that is valid. */
inline points points_of(std::string_view utf8)
{
    const auto wide = utf8_decode(utf8).value();
    return points(wide.begin(), wide.end());
}

} // namespace support

#endif
