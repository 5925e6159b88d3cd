#include <vellib/velconvert.h>
#include <vellib/velstrtoi64.h>

#include "adt/veljson_internal.h"
#include "adt/veljson_scan.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

/* What the grammar of a number remembers. */
struct vel_json_number_state {
    size_t firstdigit; /* the position of the first digit, if that is one */
    bool leadingzero;  /* only a zero was seen so far */
    bool dotjustseen;
    unsigned int dots;
};

static bool vel_json_number_ends_at(char ch)
{
    switch (ch) {
    case '\t':
    case '\n':
    case '\r':
    case ' ':
    case ',':
    case ']':
    case '}':
        return true;
    default:
        return false;
    }
}

/* Takes a zero, a dot or what has no place in a number. */
static bool vel_json_number_take(vel_json_number_state *state, size_t pos, char ch)
{
    if (ch == '0') {
        if (state->leadingzero) {
            VEL_LOG(6, "a number cannot start with two consecutive zeros");
            return false;
        }
        state->leadingzero = pos == state->firstdigit;
        return true;
    }
    if (ch == '.') {
        if (state->dots > 0) {
            VEL_LOG(6, "a number containing two dots not allowed");
            return false;
        }
        state->dots++;
        state->dotjustseen = true;
        state->leadingzero = false;
        return true;
    }
    VEL_LOG(6, "unimplemented '%c'", ch);
    return false;
}

/* Steps to the last digit of those that follow each other: behind one that is no leading zero, all
 * are alike. */
static inline void vel_json_parser_skip_digits(veljsonparser *parser)
{
    const char *const json = parser->json;
    size_t pos = parser->pos + 1;

    while (json[pos] >= '0' && json[pos] <= '9') /* the terminator is none */
        pos++;
    parser->pos = pos - 1;
}

/* Steps to the character that ends the number. */
static bool vel_json_parser_skip_number(veljsonparser *parser, vel_json_number_state *state)
{
    for (; parser->pos < parser->jsonlen; parser->pos++) {
        const char ch = parser->json[parser->pos];
        const bool isdigit = ch >= '0' && ch <= '9';

        if (state->dotjustseen && !isdigit) {
            VEL_LOG(6, "the next character after a dot must be a digit but was '%c'", ch);
            return false;
        }
        state->dotjustseen = false;
        if (isdigit && ch != '0') {
            state->leadingzero = false;
            vel_json_parser_skip_digits(parser);
        } else if (vel_json_number_ends_at(ch)) {
            return true;
        } else if (!vel_json_number_take(state, parser->pos, ch)) {
            return false;
        }
    }
    if (state->dotjustseen)
        VEL_LOG(6, "expected a digit after a dot in a number");
    VEL_LOG(6, "got end-of-data in the middle of a number");
    return false;
}

static int vel_json_number_convert_double(veljsonparser *parser, size_t start, veljsonnode *node)
{
    const char *const json = parser->json;
    const size_t pos = parser->pos;
    const char *endptr;

    node->nodetype = VEL_JSON_TYPE_DOUBLE;
    node->value.number = vel_json_decimal_to_double(json + start, pos - start, &endptr);
    VEL_ASSERT(endptr == json + pos);
    node->integervalue = vel_convert_i64_from_double_round(node->value.number);
    return 0;
}

/* A number that is out of range becomes 0. */
static int vel_json_number_convert_integer(const veljsonparser *parser, size_t start,
                                           veljsonnode *node)
{
    int64_t integervalue = 0;
    const vel_error_t err = vel_strtoi64(parser->json + start, &integervalue);

    if (err == VEL_ERROR_INVALID_SYNTAX) {
        VEL_LOG(6, "invalid syntax while parsing a number");
        return -1;
    }
    if (err != VEL_ERROR_OUT_OF_RANGE)
        VEL_ASSERT(err == VEL_ERROR_NONE || err == VEL_ERROR_INCOMPLETE);
    node->integervalue = integervalue;
    node->value.number = static_cast<double>(integervalue);
    return 0;
}

/* Reads a number at once, if it is one of few digits in which nothing is odd. */
static bool vel_json_parser_parse_plain_number(veljsonparser *parser, veljsonnode *node)
{
    const char *const start = parser->json + parser->pos;
    const char *const textend = parser->json + parser->jsonlen;
    const bool negative = *start == '-';
    const char *const first = start + negative;
    uint64_t digits = 0;
    const char *end = vel_json_read_digits(first, textend, &digits);
    ptrdiff_t count = end - first;

    if (count == 0 || (*first == '0' && count > 1))
        return false;
    size_t scale = 0;
    if (*end == '.') {
        const char *const fraction = end + 1;
        end = vel_json_read_digits(fraction, textend, &digits);
        if (end == fraction)
            return false;
        scale = static_cast<size_t>(end - fraction);
        count += end - fraction;
    }
    if (count > 18 || !vel_json_number_ends_at(*end))
        return false;

    /* What follows is the same for both signs, of which nobody can foretell which one it is. */
    const int64_t sign = negative ? -1 : 1;
    double magnitude;
    if (scale == 0) {
        node->integervalue = static_cast<int64_t>(digits) * sign;
        node->value.number = static_cast<double>(node->integervalue);
    } else if (vel_json_digits_to_double(digits, scale, &magnitude)) {
        node->nodetype = VEL_JSON_TYPE_DOUBLE;
        node->value.number = magnitude * static_cast<double>(sign);
        node->integervalue = vel_convert_i64_from_double_round(magnitude) * sign;
    } else {
        return false;
    }
    parser->pos = static_cast<size_t>(end - parser->json);
    return true;
}

int vel_json_parser_parse_number(veljsonparser *parser, veljsonnode **nodeptr)
{
    const char ch = parser->json[parser->pos];
    VEL_ASSERT(ch == '-' || (ch >= '0' && ch <= '9'));

    veljsonnode *const node = vel_json_parser_create_node(parser, VEL_JSON_TYPE_INTEGER);
    if (!node)
        return -1;
    *nodeptr = node;
    if (vel_json_parser_parse_plain_number(parser, node))
        return 0;
    const size_t start = parser->pos;
    if (ch == '-')
        parser->pos++;
    vel_json_number_state state = {parser->pos, false, false, 0};
    if (!vel_json_parser_skip_number(parser, &state))
        return -1;
    return state.dots > 0 ? vel_json_number_convert_double(parser, start, node)
                          : vel_json_number_convert_integer(parser, start, node);
}
