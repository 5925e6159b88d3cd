/* JSON documents against RapidJSON, cJSON, json-c and jansson: read (and freed again) and written,
 * with the blocks and the bytes that a read document takes.
 *
 * No peer writes the same: members come out in the order of our hash table and doubles with six
 * digits, where the peers write 17; json-c repeats the text of a double that it has read. RapidJSON
 * reads with its default flags, which let a double be off by a few units of the last place. */
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <malloc.h>
#include <random>
#include <string>

#include <cjson/cJSON.h>
#include <json-c/json.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <vellib/veljson.h>
#include <vellib/velmalloc.h>

#include "bench.h"

/* ---- The allocator, counted for all contenders ---- */

static size_t allocated, allocations; /* bytes that are in use; blocks ever given out */

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *pointer, size_t size);
void __libc_free(void *pointer);

static void *counted(void *pointer)
{
    if (pointer) {
        allocations++;
        allocated += malloc_usable_size(pointer);
    }
    return pointer;
}

void *malloc(size_t size)
{
    return counted(__libc_malloc(size));
}

void *calloc(size_t count, size_t size)
{
    return counted(__libc_calloc(count, size));
}

void *realloc(void *pointer, size_t size)
{
    allocated -= malloc_usable_size(pointer);
    return counted(__libc_realloc(pointer, size));
}

void free(void *pointer)
{
    allocated -= malloc_usable_size(pointer);
    __libc_free(pointer);
}
}

namespace {

/* ---- Documents ---- */

std::mt19937 generator(20240229);

unsigned int below(unsigned int limit)
{
    return static_cast<unsigned int>(generator() % limit);
}

std::string words(unsigned int count)
{
    static const char *const kWords[] = {
        "the",   "river", "of",      "morning",     "carries",
        "a",     "quiet", "light",   "across",      "every",
        "stone", "and",   "station", "caf\xc3\xa9", "\xe6\x97\xa5\xe6\x9c\xac"};
    std::string text;
    for (unsigned int i = 0; i < count; i++) {
        text += i ? " " : "";
        text += kWords[below(std::size(kWords))];
    }
    return text;
}

std::string number(unsigned int limit)
{
    return std::to_string(below(limit));
}

std::string user()
{
    std::string screen = "name_" + number(100000);
    return "{\"id\":" + number(2000000000) + ",\"id_str\":\"" + number(2000000000) +
           "\",\"name\":\"" + words(2) + "\",\"screen_name\":\"" + screen + "\",\"location\":\"" +
           words(2) + "\",\"description\":\"" + words(8 + below(12)) +
           "\",\"url\":\"http:\\/\\/example.com\\/" + screen +
           "\",\"protected\":false,\"followers_count\":" + number(9999) +
           ",\"friends_count\":" + number(999) + ",\"listed_count\":" + number(99) +
           ",\"created_at\":\"Tue Mar 0" + number(9) +
           " 10:11:12 +0000 2010\",\"utc_offset\":null,\"time_zone\":null,\"geo_enabled\":true,"
           "\"verified\":false,\"statuses_count\":" +
           number(99999) +
           ",\"lang\":\"en\",\"profile_background_color\":\"C0DEED\",\"profile_image_url\":\"http:"
           "\\/\\/example.com\\/images\\/" +
           number(100000) + ".png\",\"default_profile\":true,\"following\":false}";
}

/* Messages with their senders, mostly strings and small objects. */
std::string messages()
{
    std::string text = "{\n  \"statuses\": [";
    for (int i = 0; i < 1500; i++) {
        text += i ? ",\n    {" : "\n    {";
        text += "\n      \"created_at\": \"Sun Aug 31 00:29:15 +0000 2014\",\n      \"id\": 5059" +
                number(1000000000) + ",\n      \"text\": \"" + words(10 + below(12)) +
                " \\u3042\\n\\\"" + words(2) +
                "\\\"\",\n      \"truncated\": false,\n      \"in_reply_to_status_id\": null,\n    "
                "  \"user\": " +
                user() +
                ",\n      \"geo\": null,\n      \"entities\": {\"hashtags\": [{\"text\":\"" +
                words(1) + "\",\"indices\":[" + number(50) + "," + number(100) +
                "]}], \"symbols\": [], \"urls\": []},\n      \"retweet_count\": " + number(50) +
                ",\n      \"favorited\": false,\n      \"lang\": \"en\"\n    }";
    }
    return text + "\n  ]\n}\n";
}

/* A catalogue: deep indentation, objects of few members, objects with many members, whole numbers. */
std::string catalogue()
{
    std::string text = "{\n    \"events\": {";
    for (int i = 0; i < 1800; i++) {
        const std::string id = std::to_string(138586341 + 4 * i);
        text += i ? ",\n" : "\n";
        text +=
            "        \"" + id +
            "\": {\n            \"description\": null,\n            \"id\": " + id +
            ",\n            \"logo\": \"/images/" + number(1000000) +
            ".jpg\",\n            \"name\": \"" + words(3) +
            "\",\n            \"subTopicIds\": [\n                337184269,\n                " +
            number(400000000) + "\n            ],\n            \"topicIds\": [\n                " +
            number(400000000) + ",\n                107888604\n            ]\n        }";
    }
    text += "\n    },\n    \"performances\": [";
    for (int i = 0; i < 1800; i++) {
        text += i ? ",\n" : "\n";
        text += "        {\n            \"eventId\": " + number(400000000) +
                ",\n            \"prices\": [";
        for (int price = 0; price < 3; price++)
            text += std::string(price ? ",\n" : "\n") +
                    "                {\n                    \"amount\": " + number(90000) +
                    ",\n                    \"audienceSubCategoryId\": 337100890,\n                "
                    "    \"seatCategoryId\": " +
                    number(400000000) + "\n                }";
        text += "\n            ],\n            \"start\": 13727" + number(99999999) +
                ",\n            \"venueCode\": \"PLEYEL_PLEYEL\"\n        }";
    }
    return text + "\n    ]\n}\n";
}

/* Outlines of a map: pairs of doubles with 15 to 17 digits and no exponents. */
std::string numbers()
{
    std::uniform_real_distribution<double> degrees(-180, 180);
    std::string text = "{\"type\":\"FeatureCollection\",\"coordinates\":[";
    for (int outline = 0; outline < 400; outline++) {
        text += outline ? ",[" : "[";
        for (int point = 0; point < 180; point++) {
            char pair[80];
            snprintf(pair, sizeof(pair), "%s[%.15f,%.14f]", point ? "," : "", degrees(generator),
                     degrees(generator));
            text += pair;
        }
        text += "]";
    }
    return text + "]}";
}

/* ---- Two libraries that share names ---- */

/* json-c and jansson both have a json_object_get, among others; so each is loaded for itself. */
template <typename Function> void load(Function *&function, void *library, const char *name)
{
    function = reinterpret_cast<Function *>(dlsym(library, name));
    if (!function) {
        fprintf(stderr, "%s\n", dlerror());
        exit(1);
    }
}

struct jsonc_library {
    decltype(&json_tokener_parse) parse;
    decltype(&json_object_put) put;
    decltype(&json_object_to_json_string_ext) write;
    decltype(&json_object_new_array) new_array;
    decltype(&json_object_new_int64) new_int64;
    decltype(&json_object_array_add) array_add;
    decltype(&json_object_array_get_idx) array_get;
    decltype(&json_object_get_int64) get_int64;
} jsonc;

struct jansson_library {
    void *(*parse)(const char *text, size_t flags, void *error);
    void (*destroy)(void *document);
    char *(*write)(const void *document, size_t flags);
    void *(*array)();
    void *(*integer)(long long value);
    int (*append_new)(void *array, void *value);
    void *(*array_get)(const void *array, size_t index);
    long long (*integer_value)(const void *integer);
} jansson;

const size_t kJanssonCompact = 0x20;

void load_libraries()
{
    void *const c = dlopen("libjson-c.so.5", RTLD_NOW | RTLD_LOCAL);
    void *const j = dlopen("libjansson.so.4", RTLD_NOW | RTLD_LOCAL);

    load(jsonc.parse, c, "json_tokener_parse");
    load(jsonc.put, c, "json_object_put");
    load(jsonc.write, c, "json_object_to_json_string_ext");
    load(jsonc.new_array, c, "json_object_new_array");
    load(jsonc.new_int64, c, "json_object_new_int64");
    load(jsonc.array_add, c, "json_object_array_add");
    load(jsonc.array_get, c, "json_object_array_get_idx");
    load(jsonc.get_int64, c, "json_object_get_int64");
    load(jansson.parse, j, "json_loads");
    load(jansson.destroy, j, "json_delete");
    load(jansson.write, j, "json_dumps");
    load(jansson.array, j, "json_array");
    load(jansson.integer, j, "json_integer");
    load(jansson.append_new, j, "json_array_append_new");
    load(jansson.array_get, j, "json_array_get");
    load(jansson.integer_value, j, "json_integer_value");
}

/* ---- Contenders ---- */

void *read_vel(const char *text)
{
    veljson *document = vel_json_create();
    if (vel_json_parse(document, text) < 0)
        abort();
    return document;
}

void free_vel(void *document)
{
    vel_json_destroy(static_cast<veljson *>(document));
}

void write_vel(void *document)
{
    char *text = vel_json_output(static_cast<veljson *>(document));
    bench::keep(text);
    vel_free(text);
}

void *read_rapidjson(const char *text)
{
    auto *document = new rapidjson::Document;
    if (document->Parse(text).HasParseError())
        abort();
    return document;
}

void free_rapidjson(void *document)
{
    delete static_cast<rapidjson::Document *>(document);
}

void write_rapidjson(void *document)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    static_cast<rapidjson::Document *>(document)->Accept(writer);
    bench::keep(buffer.GetString());
}

void *read_cjson(const char *text)
{
    cJSON *document = cJSON_Parse(text);
    if (!document)
        abort();
    return document;
}

void free_cjson(void *document)
{
    cJSON_Delete(static_cast<cJSON *>(document));
}

void write_cjson(void *document)
{
    char *text = cJSON_PrintUnformatted(static_cast<cJSON *>(document));
    bench::keep(text);
    cJSON_free(text);
}

void *read_jsonc(const char *text)
{
    json_object *document = jsonc.parse(text);
    if (!document)
        abort();
    return document;
}

void free_jsonc(void *document)
{
    jsonc.put(static_cast<json_object *>(document));
}

void write_jsonc(void *document)
{
    bench::keep(jsonc.write(static_cast<json_object *>(document), JSON_C_TO_STRING_PLAIN));
}

void *read_jansson(const char *text)
{
    void *document = jansson.parse(text, 0, nullptr);
    if (!document)
        abort();
    return document;
}

void free_jansson(void *document)
{
    jansson.destroy(document); /* nobody else refers to it */
}

void write_jansson(void *document)
{
    char *text = jansson.write(document, kJanssonCompact);
    bench::keep(text);
    free(text);
}

const struct contender {
    const char *name;
    void *(*read)(const char *text);
    void (*release)(void *document);
    void (*write)(void *document);
} kContenders[] = {
    {"vellib", read_vel, free_vel, write_vel},
    {"RapidJSON", read_rapidjson, free_rapidjson, write_rapidjson},
    {"cJSON", read_cjson, free_cjson, write_cjson},
    {"json-c", read_jsonc, free_jsonc, write_jsonc},
    {"jansson", read_jansson, free_jansson, write_jansson},
};

/* ---- Measuring ---- */

const struct document {
    const char *name;
    std::string text;
} kDocuments[] = {{"messages", messages()}, {"catalogue", catalogue()}, {"numbers", numbers()}};

const int kRounds = 15;

/* Nanoseconds for a byte of the text that is read, in writing too. */
void measure_reading(const document &document)
{
    const std::string name = std::string("read ") + document.name;
    bench::measure_row(name, std::size(kContenders), kRounds, [&](size_t i) {
        return bench::sample(1, document.text.size(), [&] {
            kContenders[i].release(kContenders[i].read(document.text.c_str()));
        });
    });
}

void measure_writing(const document &document)
{
    bench::series series(std::size(kContenders));
    for (size_t i = 0; i < std::size(kContenders); i++) {
        void *tree = kContenders[i].read(document.text.c_str());
        for (int round = 0; round < kRounds; round++)
            series.add(i, bench::sample(1, [&] { kContenders[i].write(tree); }) /
                              document.text.size());
        kContenders[i].release(tree);
    }
    bench::print_row(std::string("write ") + document.name, series);
}

size_t count_values(const rapidjson::Value &value)
{
    size_t count = 1;
    if (value.IsObject())
        for (const auto &member : value.GetObject())
            count += count_values(member.value);
    else if (value.IsArray())
        for (const auto &element : value.GetArray())
            count += count_values(element);
    return count;
}

void measure_memory(const document &document)
{
    rapidjson::Document counted;
    counted.Parse(document.text.c_str());
    const auto count = static_cast<double>(count_values(counted));
    std::vector<double> bytes, blocks;
    for (const contender &contender : kContenders) {
        const size_t bytesbefore = allocated, blocksbefore = allocations;
        void *tree = contender.read(document.text.c_str());
        bytes.push_back(static_cast<double>(allocated - bytesbefore) / count);
        blocks.push_back(static_cast<double>(allocations - blocksbefore) / count);
        contender.release(tree);
    }
    bench::print_row(std::string("bytes a value, ") + document.name, bytes);
    bench::print_row(std::string("allocations a value, ") + document.name, blocks);
}

/* ---- A long array, built and then looked at by index ---- */

const size_t kElements = 10000;

void append_vel()
{
    veljson *document = vel_json_create();
    veljsonnode *array;
    vel_json_node_set_array(document, nullptr);
    vel_json_fetch_node(document, &array, nullptr);
    for (size_t i = 0; i < kElements; i++)
        vel_json_node_set_integer(document, vel_json_node_array_add(document, array),
                                  static_cast<int64_t>(i));
    for (unsigned long i = 0; i < kElements; i++) {
        int value;
        if (vel_json_fetch_int(document, &value, "#", i, nullptr) < 0)
            abort();
        bench::keep(value);
    }
    vel_json_destroy(document);
}

void append_jsonc()
{
    json_object *array = jsonc.new_array();
    for (size_t i = 0; i < kElements; i++)
        jsonc.array_add(array, jsonc.new_int64(static_cast<int64_t>(i)));
    for (size_t i = 0; i < kElements; i++)
        bench::keep(jsonc.get_int64(jsonc.array_get(array, i)));
    jsonc.put(array);
}

void append_jansson()
{
    void *array = jansson.array();
    for (size_t i = 0; i < kElements; i++)
        jansson.append_new(array, jansson.integer(static_cast<long long>(i)));
    for (size_t i = 0; i < kElements; i++)
        bench::keep(jansson.integer_value(jansson.array_get(array, i)));
    jansson.destroy(array);
}

void measure_append()
{
    void (*const appends[])() = {append_vel, append_jsonc, append_jansson};
    bench::print_header("ns an element", {"vellib", "json-c", "jansson"});
    bench::measure_row("append and fetch by index, 10000 elements", std::size(appends), 101,
                       [&](size_t i) { return bench::sample(1, kElements, appends[i]); });
}

} // namespace

int main()
{
    load_libraries();
    bench::print_header("ns a byte of the text", bench::names_of(kContenders));
    for (const document &document : kDocuments)
        measure_reading(document);
    for (const document &document : kDocuments)
        measure_writing(document);
    bench::print_header("memory of a read document", bench::names_of(kContenders));
    for (const document &document : kDocuments)
        measure_memory(document);
    measure_append();
    return 0;
}
