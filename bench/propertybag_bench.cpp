// PropertyBag::Parse throughput on a METADATA-like text of about 1 MB, in the
// tolerant and the strict mode. Prints the median of several runs.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "core/propertybag.h"

namespace {

// Items of the kinds a job's metadata carries: plain values, thumbprints,
// values with entities, a sub bag now and then, and a few BINARY items. No
// white space between tags, so that the strict mode reads it as well.
std::wstring buildText(size_t targetBytes, std::uint64_t& topItems)
{
    std::wstring text = L"<PROPERTYBAG>";
    topItems = 0;
    std::wstring blob;
    for (int i = 0; i < 200; ++i)
        blob += L"QUJDREVGR0hJSktMTU5PUFFSU1RVVldYWVo=";
    blob.resize(blob.size() - 1);
    for (unsigned n = 0; text.size() * sizeof(wchar_t) < targetBytes; ++n) {
        std::wstring i = std::to_wstring(n);
        switch (n % 8) {
        case 0:
            text += L"<ITEM name=\"THUMBPRINT\">3F2A" + i + L"9C0D1E7B4455AA00CC11DD22EE33FF44</ITEM>";
            break;
        case 1:
            text += L"<ITEM name=\"Product&amp;Version\">Agent &lt;" + i + L"&gt; &quot;x64&quot; &apos;Q&apos;</ITEM>";
            break;
        case 2:
            text += L"<ITEM name=\"Path" + i + L"\">C:\\Program Files\\Tarvelle\\Zenthra\\bin\\agent" + i +
                    L".exe</ITEM>";
            break;
        case 3:
            text += L"<ITEM name=\"Files\" type=\"BAG\"><ITEM name=\"File\">setup" + i +
                    L".msi</ITEM><ITEM name=\"Size\">73400320</ITEM><ITEM name=\"Hash\">&#x41;&#x42;" + i +
                    L"</ITEM></ITEM>";
            break;
        case 4:
            text += (n % 400 == 4) ? L"<ITEM name=\"Signature\" type=\"BINARY\">" + blob + L"</ITEM>"
                                   : L"<ITEM name=\"Flag" + i + L"\"/>";
            break;
        case 5:
            text += L"<ITEM name='Notes'>Line one, line two; a &lt;tag&gt; in text and 100% plain words " + i +
                    L"</ITEM>";
            break;
        case 6:
            text += L"<ITEM name=\"Url\">https://cdn.example.invalid/agent/" + i + L"?a=1&amp;b=2</ITEM>";
            break;
        default:
            text += L"<ITEM name=\"Size\">" + i + L"</ITEM>";
            break;
        }
        ++topItems;
    }
    text += L"</PROPERTYBAG>";
    return text;
}

double medianOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

}  // namespace

int wmain()
{
    std::uint64_t topItems = 0;
    const std::wstring text = buildText(1u << 20, topItems);
    const double megabytes = static_cast<double>(text.size() * sizeof(wchar_t)) / (1024.0 * 1024.0);
    std::printf("text: %.2f MB (UTF-16), %zu characters, %llu top-level items\n", megabytes, text.size(),
                static_cast<unsigned long long>(topItems));

    const int kRuns = 11;
    struct Mode {
        const char* name;
        int strict;
    };
    for (const Mode& mode : {Mode{"tolerant", 0}, Mode{"strict", 1}}) {
        std::vector<double> seconds;
        for (int run = 0; run < kRuns; ++run) {
            CORE::PropertyBag bag;
            auto start = std::chrono::steady_clock::now();
            bool ok = bag.Parse(text.c_str(), true, mode.strict);
            auto end = std::chrono::steady_clock::now();
            if (!ok || bag.Count() != topItems) {
                std::printf("%s: parse failed\n", mode.name);
                return 1;
            }
            seconds.push_back(std::chrono::duration<double>(end - start).count());
        }
        double median = medianOf(seconds);
        std::printf("%-8s  %8.1f MB/s  (median of %d runs, %.2f ms per parse)\n", mode.name, megabytes / median, kRuns,
                    median * 1000.0);
    }
    return 0;
}
