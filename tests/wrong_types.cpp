// Statements that must not compile. The comment above each is a part of what the compiler says of it;
// wrong_types_test.cmake compares. Each has its own pair of types: a compiler says each thing once.
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include <md/md_message.h>
#include <md/md_mint.h>

constexpr MD::Field<char> KIND{10};
constexpr MD::Field<std::int32_t> QTY{300};
constexpr MD::Field<std::int64_t> SEQ{20};
constexpr MD::Field<float> VOLA{40};
constexpr MD::Field<double> BID{22};
constexpr MD::Field<MD::MD_Message::String> SYMBOL{60};
constexpr MD::Field<MD::MD_Message::Buffer> BLOB{70};
constexpr MD::Field<MD::MD_DateTime> WHEN{80};
constexpr MD::Field<MD::MD_EpochNS> TIME{90};

using Picoseconds = std::chrono::duration<std::int64_t, std::pico>;

bool wrongTypes(MD::mInt& message, MD::MD_Message& base) {
  bool done = true;

  // Numbers that can lose something.
  // says: an INT field takes integers of which every value fits 32 bits
  done &= message.add(QTY, 1.5);
  // says: write static_cast<std::int32_t>, where it is known to fit
  done &= message.add(QTY, 1U);
  // says: an INT field takes integers of which every value fits 32 bits
  done &= message.update(QTY, std::int64_t{1});
  // says: an INT field takes integers of which every value fits 32 bits
  done &= message.add(QTY, 'B');
  // says: an INT field takes integers of which every value fits 32 bits
  done &= base.add(QTY, "300");
  // says: an INT64 field takes integers of which every value fits 64 bits
  done &= message.add(SEQ, std::uint64_t{1});
  // says: a FLOAT field takes a float or an integer of at most 16 bits
  done &= message.add(VOLA, 1.5);
  // says: write static_cast<float>, where the loss is wanted
  done &= base.update(VOLA, 1);
  // says: a DOUBLE field takes a double, a float or an integer of at most 32 bits
  done &= message.add(BID, std::int64_t{1});
  // says: a DOUBLE field takes a double, a float or an integer of at most 32 bits
  done &= message.update(BID, "184.15");

  // Other kinds of values.
  // says: a bool is not the value of a field
  done &= message.add(QTY, true);
  // says: a bool is not the value of a field
  done &= message.update(SYMBOL, false);
  // says: a CHAR field takes a char
  done &= message.add(KIND, 66);
  // says: a CHAR field takes a char
  done &= message.add(KIND, "B");
  // says: a STRING field takes text
  done &= message.add(SYMBOL, 5);
  // says: a STRING field takes text
  done &= base.add(SYMBOL, 'B');
  // says: a STRING field takes text
  done &= message.add(SYMBOL, nullptr);
  // says: a BUFFER field takes bytes one after the other
  done &= message.add(BLOB, "AB");
  // says: a BUFFER field takes bytes one after the other
  done &= message.add(BLOB, std::vector<int>{1});
  // says: a plain number has no unit, so write MD_EpochNS(nanoseconds)
  done &= message.add(TIME, std::uint64_t{1});
  // says: an EPOCH_NSEC field takes an MD_EpochNS or a time point of std::chrono::system_clock
  done &= message.add(TIME, std::chrono::seconds(1));
  // says: an EPOCH_NSEC field takes an MD_EpochNS or a time point of std::chrono::system_clock
  done &= message.update(TIME, std::chrono::steady_clock::now());
  // says: a time point must count whole nanoseconds
  done &= message.add(TIME, std::chrono::time_point<std::chrono::system_clock, Picoseconds>());
  // says: a DATETIME field takes an MD_DateTime, such as *MD_DateTime::fromDate(2024, 6, 3)
  done &= message.add(WHEN, 20240603);

  // Without a typed field.
  // says: MD_Message: a bool is not the value of a field
  done &= message.add(300, true);
  // says: T must be one of the nine value types of a field
  done &= message.get<std::string>(60).has_value();
  // says: T must be one of the nine value types of a field
  done &= MD::Field<unsigned>(7).id() == 7;
  return done;
}
