// URL templates: values go in as they are, and 1023 bytes is the most.
#include <gtest/gtest.h>

#include <string>

#include "KXCommonType.h"
#include "frame/UrlTemplate.h"

TEST(UrlTemplate, FormatsWholeOrRefuses) {
    std::string url = "stale";
    EXPECT_EQ(0, KXFormatUrl(url, "%s/v1/accounts/%s?x=%s", "https://h:1", "a b", "\xD6\xD0&"));
    EXPECT_EQ("https://h:1/v1/accounts/a b?x=\xD6\xD0&", url);

    const std::string base = "https://h";
    const std::string fits(kKXUrlLimit - base.size() - 1, 'v');
    EXPECT_EQ(0, KXFormatUrl(url, "%s/%s", base.c_str(), fits.c_str()));
    EXPECT_EQ(kKXUrlLimit, url.size());

    const std::string tooLong = fits + "w";
    EXPECT_EQ(KX_ERR_URL_TOO_LONG, KXFormatUrl(url, "%s/%s", base.c_str(), tooLong.c_str()));
    EXPECT_EQ("", url);
}
