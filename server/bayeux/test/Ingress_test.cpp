#include "server/bayeux/Ingress.hpp"

#include <gtest/gtest.h>

namespace server::bayeux {
namespace {

std::string verdict(const std::variant<std::string, Refusal>& result, const std::string& data) {
    if (const auto* refusal = std::get_if<Refusal>(&result)) {
        return std::to_string(static_cast<int>(refusal->code)) + " " + refusal->text;
    }
    EXPECT_EQ(std::get<std::string>(result), data) << "the text must be handed on as it stands";
    return "admitted";
}

/// The text of the refusal, or "admitted".
std::string verdictOn(const std::string& data, std::size_t maxBytes = 1000) {
    Limits limits;
    limits.maxMessageBytes = maxBytes;
    return verdict(Ingress(limits).admit(data), data);
}

std::string verdictOnSinks(const std::string& data) {
    return verdict(Ingress(Limits()).admitSinks(data), data);
}

std::string nested(std::size_t levels) {
    return R"({"requestID":"r","a":)" + std::string(levels - 1, '[') + std::string(levels - 1, ']') + "}";
}

TEST(Ingress, AdmitsStrictObjects) {
    for (const char* data : {R"({"requestID":"a"})", R"({ "a" : [ 1 , -0.5e+3 , null ] , "requestID" : "" })",
                             R"({"":{},"requestID":"r"})", R"({"requestID":"\ud83d\ude00 \" \u0000"})",
                             "{\"requestID\":\"\xc3\xa4\xf0\x9f\x98\x80\"}"}) {
        EXPECT_EQ(verdictOn(data), "admitted") << data;
    }
}

TEST(Ingress, AdmitsNumbersBeyondTheRangeOfSimdjson) {
    for (const char* number : {"1e999", "-1e999", "123456789012345678901234567890", "1e-999",
                               R"([1e999,{"b":18446744073709551616}])"}) {
        EXPECT_EQ(verdictOn(R"({"requestID":"r","a":)" + std::string(number) + "}"), "admitted") << number;
    }
}

TEST(Ingress, RefusesATypeThatIsNoString) {
    for (const char* members :
         {R"("requestIDtoDetach":"a","ywtype":5)", R"("a":[[{"ywtype":null}]])", R"("\u0079wtype":{})",
          R"("ywtyp\u0065":[])", R"("ywtype":"int8","ywtype":8)", R"("\u0079\u0077type":true)"}) {
        for (const char* more : {"", R"(,"z":1e999)"}) {
            const std::string data = R"({"requestID":"r",)" + std::string(members) + more + "}";
            EXPECT_EQ(verdictOn(data), "400 every ywtype in the data must be a string") << data;
        }
    }
    for (const char* members :
         {R"("ywtype":"int8")", R"("a":"ywtype")", R"("ywtypes":5)", R"("ywtyp":5)", R"("\u0059wtype":5)",
          R"("\\u0079wtype":5)", R"("\"wtype":5)", R"("a":["ywtype",5])", R"("ywtyp\u0065":"int8")"}) {
        for (const char* more : {"", R"(,"z":1e999)"}) {
            const std::string data = R"({"requestID":"r",)" + std::string(members) + more + "}";
            EXPECT_EQ(verdictOn(data), "admitted") << data;
        }
    }
}

TEST(Ingress, RefusesTypedIntegersThatAreNone) {
    for (const char* array :
         {R"({"ywtype":"int64","ywsize":[1],"ywdata":["9007199254740993"]})",
          R"({"ywtype":"int8","ywsize":[2],"ywdata":[1,"NaN"]})", R"({"ywtype":"uint64","ywdata":[1.5]})",
          R"({"ywtype":"int16","ywdata":[1e3]})", R"({"ywtype":"uint8","ywdata":[[1]]})",
          R"({"ywtype":"int32","ywdata":[null]})", R"({"ywtype":"uint32","ywdata":[true]})",
          R"({"ywtype":"uint16","ywdata":1})", R"({"ywtype":"int64","ywdata":"1"})",
          R"({"ywdata":[1,"2"],"ywsize":[2],"ywtype":"int64"})",
          R"({"\u0079wtype":"int64","ywdat\u0061":[1.0]})",
          R"({"ywtype":"int8","ywtype":"float64","ywdata":[0.5]})",
          R"([{"ywtype":"list","ywdata":[{"ywtype":"int8","ywdata":[{}]}]}])"}) {
        for (const char* more : {"", R"(,"z":1e999)"}) {
            const std::string data =
                R"({"requestID":"r","rhsArgs":[)" + std::string(array) + "]" + more + "}";
            EXPECT_EQ(verdictOn(data),
                      "400 the ywdata of an integer ywtype must be an array of plain integers")
                << data;
        }
    }
}

TEST(Ingress, AdmitsTypedArraysThatTheModuleReads) {
    for (const char* array :
         {R"({"ywtype":"int64","ywsize":[4],"ywdata":[0,-0,-9223372036854775808,9223372036854775807]})",
          R"({"ywtype":"uint64","ywsize":[1],"ywdata":[18446744073709551615]})",
          R"({"ywtype":"int64","ywsize":[1],"ywdata":[123456789012345678901234567890]})",
          R"({"ywtype":"int8","ywsize":[0],"ywdata":[ ]})", R"({"ywtype":"int8"})",
          R"({"ywtype":"float64","ywsize":[3],"ywdata":["NaN",1.5,"-Inf"]})",
          R"({"ywtype":"float64","ywtype":"int8","ywdata":[0.5]})", R"({"ywtype":"int7","ywdata":"x"})",
          R"({"ywtype":"record","ywdata":{"ywtype":"int8"}})",
          R"("{\"ywtype\":\"int64\",\"ywsize\":[1],\"ywdata\":[\"9007199254740993\"]}")"}) {
        for (const char* more : {"", R"(,"z":1e999)"}) {
            const std::string data =
                R"({"requestID":"r","rhsArgs":[)" + std::string(array) + "]" + more + "}";
            EXPECT_EQ(verdictOn(data), "admitted") << data;
        }
    }
}

TEST(Ingress, ARequestForTheSharedSinksNeedsNoKey) {
    for (const char* data :
         {"{}", R"({"outSinkTraits":{}})", R"({"errSinkTraits":{"_useEcho":true,"_useDiary":false}})",
          R"({"outSinkTraits":{"useEcho":1,"other":null},"x":[1e999]})", R"({"requestID":7})",
          R"({"outSinkTraits":{"_useEcho":true,"_useEcho":1}})"}) {
        EXPECT_EQ(verdictOnSinks(data), "admitted") << data;
    }
}

TEST(Ingress, ARequestForTheSharedSinksIsToldOfTraitsThatCannotBeRead) {
    for (const char* data : {R"({"outSinkTraits":null})", R"({"errSinkTraits":[],"outSinkTraits":{}})",
                             R"({"errSinkTraits":"x"})", R"({"\u006futSinkTraits":true})"}) {
        EXPECT_EQ(verdictOnSinks(data), "400 outSinkTraits and errSinkTraits must be objects") << data;
    }
    for (const char* trait : {"_supportsMore", "_supportsHotlinks", "_useDiary", "_useEcho",
                              "_needsFormattingForDisplay", "_useLogging"}) {
        for (const char* side : {"outSinkTraits", "errSinkTraits"}) {
            const std::string data = R"({")" + std::string(side) + R"(":{")" + trait + R"(":1}})";
            EXPECT_EQ(verdictOnSinks(data), "400 every trait of a sink must be true or false") << data;
        }
    }
    EXPECT_EQ(verdictOnSinks("[1]"), "400 the data must be an object");
    EXPECT_EQ(verdictOnSinks(R"({"ywtype":5})"), "400 every ywtype in the data must be a string");
}

TEST(Ingress, RefusesARequestWithoutAnIdentifierOrWithOneThatIsNoString) {
    for (const char* members :
         {R"("a":1)", R"("requestID":7)", R"("requestID":null)", R"("requestID":["r"])", R"("requestid":"r")",
          R"("a":{"requestID":"r"})", R"("a":[{"requestID":"r"}])", R"("requestID":"r","requestID":7)",
          R"("requestID":7,"requestID":"r")", R"("request\u0049D":{})"}) {
        for (const char* more : {"", R"(,"z":1e999)"}) {
            const std::string data = '{' + std::string(members) + more + '}';
            EXPECT_EQ(verdictOn(data), "400 the request needs a requestID - a string") << data;
        }
    }
    for (const char* members : {R"("a":{"requestID":7},"requestID":"r")", R"("request\u0049D":"r")"}) {
        for (const char* more : {"", R"(,"z":1e999)"}) {
            const std::string data = '{' + std::string(members) + more + '}';
            EXPECT_EQ(verdictOn(data), "admitted") << data;
        }
    }
}

TEST(Ingress, RefusesWhatIsNoObject) {
    EXPECT_EQ(verdictOn(""), "400 a publish needs data");
    for (const char* data : {"[1]", "5", "\"x\"", "null", "true"}) {
        EXPECT_EQ(verdictOn(data), "400 the data must be an object") << data;
    }
}

TEST(Ingress, RefusesEmptyObjectsHoweverTheyAreSpelled) {
    for (const char* data : {"{}", "{ }", "{\n\t}"}) {
        EXPECT_EQ(verdictOn(data), "400 the data must not be an empty object") << data;
    }
}

TEST(Ingress, RefusesWhatIsNoStrictJson) {
    for (const char* data : {"{\"a\":1",
                             "{\"a\":1}}",
                             "{\"a\":1} {\"b\":2}",
                             "{\"a\":1,}",
                             "{a:1}",
                             "{'a':1}",
                             "{\"a\":tru}",
                             "{\"a\":01}",
                             "{\"a\":1.}",
                             "{\"a\":.5}",
                             "{\"a\":+1}",
                             "{\"a\":NaN}",
                             "{\"a\":\"\\q\"}",
                             "{\"a\":\"\\u12\"}",
                             "{\"a\":\"\\ud83d\"}",
                             "{\"a\":\"\\ude00\"}",
                             "{\"a\":[1}",
                             "{\"a\":\"\n\"}",
                             "{\"a\":1/**/}",
                             "{\"a\":[1,]}",
                             "{\"a\"}",
                             "{1:2}",
                             "{\"a\":1e999,}",
                             "{\"a\":[1e999}"}) {
        EXPECT_EQ(verdictOn(data).substr(0, 27), "400 the data is not JSON - ") << data;
    }
}

TEST(Ingress, SaysWhereTheTextIsDamaged) {
    EXPECT_EQ(verdictOn(R"({"a":tru})"), "400 the data is not JSON - a value is expected at byte 5");
    EXPECT_EQ(verdictOn(R"({"a":1 "b":2})"),
              "400 the data is not JSON - a comma or the end is expected at byte 7");
}

TEST(Ingress, RefusesWhatIsNoUtf8) {
    EXPECT_EQ(verdictOn("{\"a\":\"\xff\"}"), "400 the data is not UTF-8");
    EXPECT_EQ(verdictOn("{\"a\":\"\xed\xa0\x80\"}"), "400 the data is not UTF-8");
    EXPECT_EQ(verdictOn("{\"a\":1e999,\"b\":\"\xff\"}"), "400 the data is not UTF-8");
}

TEST(Ingress, BoundsTheBytes) {
    const std::string data = R"({"requestID":"r"})";
    EXPECT_EQ(verdictOn(data, data.size()), "admitted");
    EXPECT_EQ(verdictOn(data, data.size() - 1), "413 the data has 17 bytes - at most 16 are accepted");
}

TEST(Ingress, BoundsTheDepthAt512Levels) {
    EXPECT_EQ(verdictOn(nested(512), 100000), "admitted");
    EXPECT_EQ(verdictOn(nested(513), 100000), "413 the data is nested more than 512 levels deep");
    EXPECT_EQ(verdictOn(nested(50000), 1000000), "413 the data is nested more than 512 levels deep");
}

TEST(Ingress, BoundsTheDepthOfTextsWithHugeNumbersToo) {
    const std::string inner = std::string(511, '[') + "1e999" + std::string(511, ']');
    EXPECT_EQ(verdictOn(R"({"requestID":"r","a":)" + inner + "}", 100000), "admitted");
    EXPECT_EQ(verdictOn(R"({"requestID":"r","a":[)" + inner + "]}", 100000),
              "413 the data is nested more than 512 levels deep");
}

TEST(Ingress, LooksAtTheMembersOfTheDeepestTextsToo) {
    // The innermost level is an object here, with a member and without.
    const auto deep = [](const std::string& members, const std::string& innermost) {
        return '{' + members + R"("a":)" + std::string(510, '[') + innermost + std::string(510, ']') + "}";
    };
    const std::string id = R"("requestID":"r",)";
    for (const char* more : {"", R"("z":1e999,)"}) {
        EXPECT_EQ(verdictOn(deep(id + more, R"({"ywtype":"int8"})"), 100000), "admitted");
        EXPECT_EQ(verdictOn(deep(id + more, R"({"ywtype":8})"), 100000),
                  "400 every ywtype in the data must be a string");
        EXPECT_EQ(verdictOn(deep(id + R"("ywtype":8,)" + more, "{}"), 100000),
                  "400 every ywtype in the data must be a string");
        EXPECT_EQ(verdictOn(deep(more, "{}"), 100000), "400 the request needs a requestID - a string");
    }
}

}  // namespace
}  // namespace server::bayeux
