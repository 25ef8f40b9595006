// Recorded quotes and trades in a capture: what awk finds in the CSV file that they come from, and tshark in the
// capture, the program must find, too.
#if defined(MDMSG_HAS_PCAP)

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/run_support.h"

namespace {

using MD::test::dataFile;
using MD::test::Result;
using MD::test::runTool;
using MD::test::ToolRun;

using Arguments = std::vector<std::string>;

class Recorded : public ToolRun {
 protected:
  void SetUp() override {
    const std::string path = dataFile("ticks_small.csv");
    if (path.empty()) {
      GTEST_SKIP() << "MD_TEST_DATA names no folder with ticks_small.csv";
    }
    write("fields.txt", runTool({"dict", "derive", path}).out);
    const Result encoded = runTool({"encode", "--encoding", "mInt", "--csv", "--format", "pcap", "--time-field",
                                    "recv_ns", "--dictionary", "fields.txt", "-o", "ticks.pcap", path});
    ASSERT_EQ(encoded.status, 0) << encoded.err;
  }

  /// Runs a command on the capture.
  static Result on(Arguments arguments) {
    arguments.insert(arguments.end(), {"--dictionary", "fields.txt", "ticks.pcap"});
    const Result result = runTool(arguments);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    return result;
  }

  static std::size_t selected(Arguments arguments) {
    arguments.insert(arguments.begin(), {"decode", "--csv", "--no-header", "--fields", "seq"});
    const std::string out = on(arguments).out;
    return static_cast<std::size_t>(std::count(out.begin(), out.end(), '\n'));
  }

  static std::size_t where(const std::string& condition) { return selected({"--where", condition}); }

  /// The lines of a report that begin with a text.
  static std::string linesWith(const std::string& begin, const std::string& text) {
    std::string found;
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = text.find('\n', at) + 1;
      found += text.compare(at, begin.size(), begin) == 0 ? text.substr(at, end - at) : "";
      at = end;
    }
    return found;
  }
};

// awk -F, 'NR>1{k=$2", "$4; n[k]++; if(!(k in f))f[k]=$1; l[k]=$1} END{for(k in n)print n[k],k,f[k],l[k]}'; date -u -d
// @
TEST_F(Recorded, CountsByVenueAndKind) {
  const std::string first3 = on({"stats", "--by", "venue,kind", "--top", "3", "--format", "json"}).out;
  const std::string begin = "{\"section\":\"group\",\"key\":\"BINANCE-";
  EXPECT_EQ(linesWith(begin, first3),
            begin +
                "SPOT, Q\",\"count\":4562,\"bytes\":447076,\"first\":\"2024-08-08T23:59:50.049397336Z\",\"last\":"
                "\"2024-08-09T00:00:09.982227412Z\"}\n" +
                begin +
                "COINM, Q\",\"count\":3063,\"bytes\":382875,\"first\":\"2024-08-08T23:59:50.001409636Z\","
                "\"last\":\"2024-08-09T00:00:09.997904112Z\"}\n" +
                begin +
                "USDM, Q\",\"count\":2443,\"bytes\":293160,\"first\":\"2024-08-08T23:59:50.010821436Z\","
                "\"last\":\"2024-08-08T23:59:59.785105784Z\"}\n");
  const std::string all = on({"stats", "--by", "kind,venue", "--csv"}).out;
  for (const char* const count :
       {"\"Q, BINANCE-SPOT\",4562,", "\"Q, BINANCE-COINM\",3063,", "\"Q, BINANCE-USDM\",2443,",
        "\"T, BINANCE-SPOT\",1115,", "\"T, BINANCE-USDM\",573,", "\"T, BINANCE-COINM\",227,"}) {
    EXPECT_NE(all.find(std::string("group,") + count), all.npos) << count << all;
  }
}

// awk -F, 'NR>1{t=substr($1,1,10); t-=t%5; n[t]++} END{for(k in n)print k,n[k]}'; tshark -q -z conv,udp
TEST_F(Recorded, IntervalsAndEndpoints) {
  const std::string out = on({"stats", "--interval", "5", "--json"}).out;
  EXPECT_EQ(linesWith("{\"section\":\"time\"", out),
            "{\"section\":\"time\",\"key\":\"2024-08-08T23:59:50.000000000Z\",\"count\":2994}\n"
            "{\"section\":\"time\",\"key\":\"2024-08-08T23:59:55.000000000Z\",\"count\":2226}\n"
            "{\"section\":\"time\",\"key\":\"2024-08-09T00:00:00.000000000Z\",\"count\":3254}\n"
            "{\"section\":\"time\",\"key\":\"2024-08-09T00:00:05.000000000Z\",\"count\":3509}\n");
  EXPECT_NE(out.find("{\"section\":\"endpoints\",\"key\":\"192.0.2.1:30000 to 239.192.0.1:30001\",\"count\":11983,"),
            out.npos);
}

// awk -F, 'NR>1&&$2=="BINANCE-SPOT"&&$4=="Q"{c++; if($3 in p){d=$7-p[$3]; if(d>1){g++; m+=d-1}} p[$3]=$7} END{print
// c,m,g}'
TEST_F(Recorded, GapsOfSequenceNumbers) {
  const Arguments quotes{
      "stats", "--sequence", "seq", "--per", "symbol", "--where", "venue = BINANCE-SPOT and kind = Q"};
  const std::string text = on(quotes).out;
  EXPECT_NE(text.find("  checked                     4562\n"
                      "  missing                    19005, 2991 gaps\n"
                      "  duplicate                      0\n"
                      "  late                           0\n"),
            text.npos)
      << text;
  Arguments trades{"stats",  "--sequence", "seq",     "--per",
                   "symbol", "--json",     "--where", "venue = BINANCE-SPOT and kind = T"};
  EXPECT_EQ(linesWith("{\"section\":\"sequence\"", on(trades).out),
            "{\"section\":\"sequence\",\"key\":\"checked\",\"count\":1115}\n"
            "{\"section\":\"sequence\",\"key\":\"missing\",\"count\":0}\n"
            "{\"section\":\"sequence\",\"key\":\"duplicate\",\"count\":0}\n"
            "{\"section\":\"sequence\",\"key\":\"late\",\"count\":0}\n");
  // The same once more: every number is a duplicate.
  trades.emplace_back("ticks.pcap");
  EXPECT_EQ(linesWith("{\"section\":\"sequence\"", on(trades).out),
            "{\"section\":\"sequence\",\"key\":\"checked\",\"count\":2230}\n"
            "{\"section\":\"sequence\",\"key\":\"missing\",\"count\":0}\n"
            "{\"section\":\"sequence\",\"key\":\"duplicate\",\"count\":1115}\n"
            "{\"section\":\"sequence\",\"key\":\"late\",\"count\":0}\n");
}

// awk -F, 'NR>1&&(CONDITION)' | wc -l, with the condition after each row
TEST_F(Recorded, Conditions) {
  EXPECT_EQ(where("symbol in (BTCUSDT, BTCUSD_PERP) and not kind = T"),
            5583U);  // ($3=="BTCUSDT"||$3=="BTCUSD_PERP")&&$4!="T"
  EXPECT_EQ(where("exists(price) and (side = B and size > 1 or venue = 'BINANCE-SPOT' and symbol =~ '^ETH')"),
            560U);                             // $12!=""&&($14=="B"&&$13>1||$2=="BINANCE-SPOT"&&$3~/^ETH/)
  EXPECT_EQ(where("exists(ord_type)"), 800U);  // $15!=""
  EXPECT_EQ(where("venue =~ 'USDM|COINM' and bid > 61600.5"), 2764U);  // $2~/USDM|COINM/&&$8>61600.5
  EXPECT_EQ(where("SYMBOL =~ '^(BTC|XRP).*PERP$'"), 1887U);            // $3~/^(BTC|XRP).*PERP$/
}

// tshark -Y 'udp.length==106' | wc -l, where a UDP header has 8 bytes; -Y 'frame.number<=100 && udp.length<110'
TEST_F(Recorded, PseudoFields) {
  EXPECT_EQ(where("@size = 98"), 4562U);
  EXPECT_EQ(where("@packet <= 100 and @size < 102"), 9U);
  EXPECT_EQ(where("@destination = 239.192.0.1 and @source = 192.0.2.1:30000 and @encoding = mInt"), 11983U);
  EXPECT_EQ(where("@destination = 239.192.0.2"), 0U);
  EXPECT_EQ(where("@time >= 2024-08-09"), 6763U);  // $1>="1723161600000000000"
  EXPECT_EQ(where("@file ~ ticks"), 11983U);
}

// awk -F, 'NR>1&&$1>="..."&&$1<"..."' | wc -l
TEST_F(Recorded, TimesOfCapture) {
  EXPECT_EQ(selected({"--from-time", "2024-08-09"}), 6763U);  // $1>="1723161600000000000"
  EXPECT_EQ(selected({"--from-time", "2024-08-09T02:00", "--time-zone", "+02:00"}), 6763U);  // the same
  EXPECT_EQ(selected({"--from-time", "23:59:55", "--to-time", "23:59:56"}), 199U);  // from 1723161595 to before ...596
  EXPECT_EQ(selected({"--to-time", "5s"}), 2995U);                                  // $1<"1723161595001409636"
  EXPECT_EQ(selected({"--from-time", "250ms"}), 11921U);                            // $1>="1723161590251409636"
}

// sed -n 2,3p; date -u -d @1723161590 +%T
TEST_F(Recorded, FormatsOfTimesAndCells) {
  const struct {
    Arguments options;
    const char* firstTwo;
  } cases[] = {
      {{}, "recv_ns,symbol,bid\n1723161590001409636,BTCUSD_PERP,61668.6\n1723161590010821436,ETHUSDT,2682.62\n"},
      {{"--iso-time"},
       "recv_ns,symbol,bid\n2024-08-08T23:59:50.001409636Z,BTCUSD_PERP,61668.6\n"
       "2024-08-08T23:59:50.010821436Z,ETHUSDT,2682.62\n"},
      {{"--time-format", "spreadsheet", "--no-header", "--time-zone", "+05:30", "--separator", "tab"},
       "2024-08-09 05:29:50.001\tBTCUSD_PERP\t61668.6\n2024-08-09 05:29:50.010\tETHUSDT\t2682.62\n"},
      {{"--time-format", "s", "--time-digits", "6", "--separator", ";"},
       "recv_ns;symbol;bid\n1723161590.001409;BTCUSD_PERP;61668.6\n1723161590.010821;ETHUSDT;2682.62\n"},
      {{"--time-format", "us", "--no-header"},
       "1723161590001409,BTCUSD_PERP,61668.6\n1723161590010821,ETHUSDT,2682.62\n"},
      {{"--time-format", "%H:%M:%S", "--no-header", "--time-digits", "3"},
       "23:59:50.001,BTCUSD_PERP,61668.6\n23:59:50.010,ETHUSDT,2682.62\n"},
  };
  for (const auto& [options, firstTwo] : cases) {
    SCOPED_TRACE(firstTwo);
    Arguments arguments{"decode", "--csv", "--fields", "recv_ns,symbol,bid", "--limit", "2"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    EXPECT_EQ(on(arguments).out, firstTwo);
  }
  // All columns of the dictionary, which are those of the file.
  EXPECT_EQ(on({"decode", "--csv", "--fields", "all", "-n", "1"}).out,
            "recv_ns,venue,symbol,kind,event_ms,txn_ms,seq,bid,bid_size,ask,ask_size,price,size,side,ord_type\n"
            "1723161590001409636,BINANCE-COINM,BTCUSD_PERP,Q,1723161591270,1723161591263,1007202095556,61668.6,840,"
            "61668.7,601,,,,\n");
  EXPECT_EQ(on({"decode", "--csv", "--fields", "@time, @packet, @size", "-n", "1", "--time-format", "ns"}).out,
            "@time,@packet,@size\n1723161590001409636,1,125\n");
}

}  // namespace

#endif
