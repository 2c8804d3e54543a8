#include "gen/LogGenerator.h"

#include <span>

#include "gen/Format.h"
#include "gen/Vocabulary.h"

namespace quorin::gen {
namespace {

using Level = LogGenerator::Level;
using Thread = LogGenerator::Thread;

// A line some component writes now and then; `$name` placeholders are
// filled in per line (see expandPlaceholder) and weights are relative
// within one level.
struct Template {
  std::string_view service;
  Thread thread;
  std::string_view logger;
  std::string_view message;
  uint32_t weight;
};

constexpr Template kInfo[] = {
    {"orders", Thread::http, "c.a.o.OrderController",
     "req=$rid Order $id submitted by $login ($n items, $amount EUR)", 100},
    {"payments", Thread::http, "c.a.p.PaymentService",
     "req=$rid Payment $uuid captured for order $id: $amount EUR via card ****$card", 80},
    {"inventory", Thread::kafka, "c.a.i.StockReservationListener",
     "Reserved $n x $sku for order $id in warehouse $city", 60},
    {"auth", Thread::http, "c.a.a.LoginController", "req=$rid User $login logged in from $ip ($city)", 60},
    {"orders", Thread::kafka, "o.a.k.c.c.KafkaConsumer",
     "Consumed record topic=$topic partition=$part offset=$offset key=$id", 80},
    {"orders", Thread::kafka, "c.a.o.e.OrderEventPublisher",
     "event={\"type\":\"order.created\",\"orderId\":$id,\"customer\":{\"login\":\"$login\","
     "\"name\":\"$name\",\"city\":\"$city\"},\"total\":$amount,\"currency\":\"EUR\",\"items\":$n}",
     70},
    {"scheduler", Thread::scheduler, "c.a.s.JobRunner",
     "Job '$job' finished in $ms ms (processed=$count, failed=0)", 30},
    {"search", Thread::worker, "c.a.s.IndexWriter",
     "Indexed batch of $count documents into products_v7 in $ms ms", 30},
    {"notify", Thread::worker, "c.a.n.EmailSender",
     "Sent order confirmation to $login@example.com (template=order-confirmed)", 40},
    {"gateway", Thread::http, "c.a.g.RouteLocator",
     "req=$rid Routed POST /api/v2/orders to orders-7c9f4d-$hex (attempt 1)", 40},
    {"orders", Thread::http, "c.a.o.CartService",
     "req=$rid Cart $uuid updated: added $sku \"$product\" qty=$n", 50},
    {"orders", Thread::main, "c.a.o.OrderServiceApplication",
     "Started OrderServiceApplication in $sec seconds", 1},
};

constexpr Template kDebug[] = {
    {"orders", Thread::http, "o.h.SQL",
     "[$ms ms] rows=$n select o.id, o.status, o.total_cents, o.created_at from orders o "
     "where o.customer_id=$id and o.created_at>'$date' order by o.created_at desc limit 50",
     100},
    {"inventory", Thread::kafka, "o.h.SQL",
     "[$ms ms] rows=1 update stock set reserved=reserved+$n, version=version+1 "
     "where sku='$sku' and version=$count",
     60},
    {"payments", Thread::http, "c.a.p.r.PaymentRepository",
     "query=findByOrderId duration_ms=$ms rows=$n cache=miss", 50},
    {"orders", Thread::http, "c.a.c.RedisCacheManager",
     "cache=products op=get key=product:$id hit=true ttl_s=$n bytes=$bytes", 80},
    {"orders", Thread::worker, "c.z.h.p.HikariPool",
     "HikariPool-1 - Pool stats (total=20, active=$n, idle=$n, waiting=0)", 40},
    {"payments", Thread::http, "c.a.p.StripeClient",
     "http.client method=POST host=api.stripe.com path=/v1/payment_intents status=200 duration_ms=$ms "
     "retries=0 req=$rid",
     60},
    {"orders", Thread::worker, "c.a.m.GcLogger",
     "gc type=G1Young pause_ms=$n heap_before_mb=$mb heap_after_mb=$mb", 30},
    {"orders", Thread::http, "c.a.o.OrderController",
     "req=$rid Request body: "
     "{\"items\":[{\"sku\":\"$sku\",\"qty\":$n}],\"shippingAddress\":{\"name\":\"$name\","
     "\"city\":\"$city\",\"zip\":\"$zip\"},\"coupon\":null}",
     60},
    {"auth", Thread::http, "c.a.a.JwtVerifier",
     "req=$rid Resolved user $login from token (sub=$uuid, roles=[USER, $role])", 50},
    {"orders", Thread::http, "c.a.o.OrderService", "req=$rid Acquired lock order:$id in $n ms", 40},
    {"search", Thread::http, "c.a.s.SearchController", "req=$rid query=\"$word\" hits=$count took_ms=$ms",
     40},
};

constexpr Template kWarn[] = {
    {"orders", Thread::http, "o.h.SQL",
     "Slow query ($slow ms > 500 ms): select * from order_items "
     "where order_id in (select id from orders where customer_id=$id)",
     60},
    {"gateway", Thread::http, "c.a.g.RetryFilter",
     "req=$rid Retrying call to payments (attempt $n/5) after 503 Service Unavailable, backoff=$ms ms", 60},
    {"orders", Thread::worker, "c.z.h.p.HikariPool",
     "HikariPool-1 - Thread starvation or clock leap detected (housekeeper delta=$sec s).", 15},
    {"inventory", Thread::kafka, "c.a.i.LagMonitor",
     "Consumer lag high topic=$topic partition=$part lag=$count", 25},
    {"gateway", Thread::http, "c.a.g.RateLimiter",
     "Client $ip close to rate limit: used=$count/50000 window=60s", 20},
    {"auth", Thread::http, "c.a.a.JwtVerifier", "req=$rid Rejected expired token for user $login (exp=$ts)",
     20},
};

constexpr Template kError[] = {
    {"orders", Thread::http, "c.a.o.OrderController", "req=$rid Failed to submit order $id for user $login",
     20},
    {"payments", Thread::http, "c.a.p.PaymentService",
     "req=$rid Payment capture failed for order $id ($amount EUR)", 15},
    {"inventory", Thread::kafka, "c.a.i.StockReservationListener",
     "Error processing record topic=$topic partition=$part offset=$offset, will retry", 15},
    {"notify", Thread::worker, "c.a.n.EmailSender", "Could not deliver mail to $login@example.com", 10},
    {"scheduler", Thread::scheduler, "c.a.s.JobRunner", "Job '$job' failed after $ms ms", 10},
};

constexpr Template kFatal[] = {
    {"orders", Thread::main, "o.s.b.SpringApplication", "Application run failed", 1},
    {"payments", Thread::worker, "c.a.p.LedgerWriter",
     "Ledger writer stopped: unrecoverable I/O error, shutting down", 1},
};

constexpr std::string_view kLevelNames[] = {"DEBUG", "INFO ", "WARN ", "ERROR", "FATAL"};
// Out of 100,000 entries.
constexpr uint32_t kLevelWeights[] = {34'000, 56'000, 8'400, 1'590, 10};

struct Exception {
  std::string_view type;
  std::string_view message;
};

constexpr Exception kExceptions[] = {
    {"java.lang.IllegalStateException", "Order $id is already being processed"},
    {"java.lang.NullPointerException",
     "Cannot invoke \"com.acme.orders.model.Customer.getAddress()\" because \"customer\" is null"},
    {"org.springframework.dao.DataIntegrityViolationException",
     "could not execute statement; SQL [n/a]; constraint [orders_customer_fk]"},
    {"java.net.SocketTimeoutException", "Read timed out"},
    {"com.acme.payments.PaymentDeclinedException", "card_declined: insufficient_funds (order $id)"},
    {"java.util.concurrent.TimeoutException",
     "Timed out after 30000 ms waiting for stock reservation of $sku"},
    {"com.fasterxml.jackson.databind.exc.InvalidFormatException",
     "Cannot deserialize value of type `java.math.BigDecimal` from String \"12,50\": not a valid "
     "representation"},
};

constexpr Exception kCauses[] = {
    {"java.sql.SQLTransientConnectionException",
     "HikariPool-1 - Connection is not available, request timed out after 30000ms."},
    {"org.postgresql.util.PSQLException", "ERROR: deadlock detected"},
    {"java.net.ConnectException", "Connection refused"},
    {"java.io.IOException", "Broken pipe"},
};

constexpr std::string_view kAppFrames[] = {
    "com.acme.orders.service.OrderService.submit(OrderService.java:",
    "com.acme.orders.service.OrderService.lambda$submit$3(OrderService.java:",
    "com.acme.orders.api.OrderController.create(OrderController.java:",
    "com.acme.payments.PaymentService.capture(PaymentService.java:",
    "com.acme.payments.StripeClient.post(StripeClient.java:",
    "com.acme.inventory.StockReservationService.reserve(StockReservationService.java:",
    "com.acme.common.retry.RetryTemplate.execute(RetryTemplate.java:",
    "com.acme.orders.repo.OrderRepository.save(OrderRepository.java:",
};

// The bottom of every request thread's stack, always the same, as in a real log.
constexpr std::string_view kServletFrames[] = {
    "jdk.internal.reflect.DirectMethodHandleAccessor.invoke(DirectMethodHandleAccessor.java:103)",
    "java.base/java.lang.reflect.Method.invoke(Method.java:580)",
    "org.springframework.web.method.support.InvocableHandlerMethod.doInvoke(InvocableHandlerMethod.java:255)",
    "org.springframework.web.servlet.mvc.method.annotation.ServletInvocableHandlerMethod.invokeAndHandle("
    "ServletInvocableHandlerMethod.java:118)",
    "org.springframework.web.servlet.DispatcherServlet.doDispatch(DispatcherServlet.java:1089)",
    "org.springframework.web.servlet.DispatcherServlet.doService(DispatcherServlet.java:979)",
    "org.springframework.web.servlet.FrameworkServlet.processRequest(FrameworkServlet.java:1014)",
    "jakarta.servlet.http.HttpServlet.service(HttpServlet.java:590)",
    "org.apache.catalina.core.ApplicationFilterChain.internalDoFilter(ApplicationFilterChain.java:205)",
    "org.apache.catalina.core.ApplicationFilterChain.doFilter(ApplicationFilterChain.java:149)",
    "org.apache.catalina.core.StandardWrapperValve.invoke(StandardWrapperValve.java:167)",
    "org.apache.catalina.connector.CoyoteAdapter.service(CoyoteAdapter.java:344)",
    "org.apache.coyote.http11.Http11Processor.service(Http11Processor.java:389)",
    "org.apache.tomcat.util.net.NioEndpoint$SocketProcessor.doRun(NioEndpoint.java:1736)",
    "org.apache.tomcat.util.threads.ThreadPoolExecutor.runWorker(ThreadPoolExecutor.java:1191)",
    "org.apache.tomcat.util.threads.TaskThread$WrappingRunnable.run(TaskThread.java:63)",
    "java.base/java.lang.Thread.run(Thread.java:1583)",
};

constexpr std::string_view kCauseFrames[] = {
    "com.zaxxer.hikari.pool.HikariPool.createTimeoutException(HikariPool.java:696)",
    "com.zaxxer.hikari.pool.HikariPool.getConnection(HikariPool.java:181)",
    "org.postgresql.core.v3.QueryExecutorImpl.receiveErrorResponse(QueryExecutorImpl.java:2725)",
    "org.postgresql.jdbc.PgPreparedStatement.executeUpdate(PgPreparedStatement.java:152)",
    "java.base/sun.nio.ch.NioSocketImpl.timedRead(NioSocketImpl.java:288)",
    "java.base/java.net.Socket$SocketInputStream.read(Socket.java:1099)",
};

constexpr std::string_view kPaths[] = {
    "/api/v2/orders/$id",
    "/api/v2/orders/$id/items",
    "/api/v2/orders?customer=$id&page=$n",
    "/api/v1/users/$id/profile",
    "/api/v1/products/$sku",
    "/api/v1/search?q=$query&page=$n",
    "/api/v2/carts/$uuid",
    "/static/js/app.$hex.js",
    "/health",
    "/metrics",
    "/login",
    "/api/v1/payments/$uuid/refund",
};

constexpr std::string_view kMethods[] = {"GET",  "GET", "GET",    "GET",   "GET",  "GET",
                                         "GET",  "GET", "GET",    "GET",   "POST", "POST",
                                         "POST", "PUT", "DELETE", "PATCH", "HEAD", "OPTIONS"};
constexpr int kOkStatuses[] = {200, 200, 200, 200, 200, 200, 200, 200, 200, 201, 204, 302, 304, 304};
constexpr int kClientErrorStatuses[] = {400, 401, 403, 404, 404, 404, 409, 422, 429};
constexpr int kServerErrorStatuses[] = {500, 500, 502, 503, 504};

constexpr std::string_view kUserAgents[] = {
    "Mozilla/5.0 (Windows NT 10.0; Win64; x64) AppleWebKit/537.36 (KHTML, like Gecko) Chrome/133.0.0.0 "
    "Safari/537.36",
    "Mozilla/5.0 (iPhone; CPU iPhone OS 18_3 like Mac OS X) AppleWebKit/605.1.15 (KHTML, like Gecko) "
    "Mobile/15E148",
    "okhttp/4.12.0",
    "curl/8.5.0",
};

constexpr std::string_view kTopics[] = {"orders.created", "orders.paid", "stock.reserved",
                                        "payments.captured", "notifications.email"};
constexpr std::string_view kJobs[] = {"reindex-products", "expire-carts", "settle-payments", "send-digest",
                                      "cleanup-sessions"};
constexpr std::string_view kRoles[] = {"ADMIN", "SUPPORT", "MERCHANT", "BETA"};
constexpr std::string_view kSearchWords[] = {"café",  "kaffeemühle", "монитор",   "usb-c",
                                             "chair", "ヘッドホン",  "desk lamp", "backpack"};
constexpr std::string_view kQueryWords[] = {"caf%C3%A9", "kaffeem%C3%BChle",
                                            "usb-c",     "chair",
                                            "desk+lamp", "%D0%BC%D0%BE%D0%BD%D0%B8%D1%82%D0%BE%D1%80"};

// Placeholders that are a number in a range, zero-padded to `width` digits.
struct NumberField {
  std::string_view name;
  int64_t low;
  int64_t high;
  int width;
};

constexpr NumberField kNumberFields[] = {
    {"id", 100'000, 999'999, 0}, {"n", 1, 12, 0},       {"count", 0, 50'000, 0},
    {"slow", 501, 12'000, 0},    {"part", 0, 11, 0},    {"offset", 1'000'000, 2'000'000'000, 0},
    {"bytes", 90, 64'000, 0},    {"mb", 300, 4'000, 0}, {"zip", 1'000, 99'999, 5},
    {"card", 0, 9'999, 4},
};

// Placeholders that are one word of a list.
struct WordField {
  std::string_view name;
  std::span<const std::string_view> words;
};

constexpr WordField kWordFields[] = {
    {"topic", kTopics}, {"job", kJobs}, {"role", kRoles}, {"word", kSearchWords}, {"query", kQueryWords},
};

template <size_t N>
const Template& pickWeighted(Random& rng, const Template (&items)[N]) {
  uint32_t total = 0;
  for (const auto& item : items) total += item.weight;
  uint32_t roll = rng.below(total);
  for (const auto& item : items) {
    if (roll < item.weight) return item;
    roll -= item.weight;
  }
  return items[N - 1];
}

void appendJsonEscaped(std::string& out, std::string_view text) {
  for (const char c : text) {
    if (c == '"' || c == '\\') out.push_back('\\');
    out.push_back(c);
  }
}

void appendUuid(std::string& out, uint64_t high, uint64_t low) {
  appendHex(out, high >> 32, 8);
  out.push_back('-');
  appendHex(out, high >> 16, 4);
  out.append("-4");  // version 4, random
  appendHex(out, high, 3);
  out.push_back('-');
  appendHex(out, 0x8000 | (low >> 48 & 0x3FFF), 4);  // the RFC 4122 variant
  out.push_back('-');
  appendHex(out, low, 12);
}

void appendFullName(std::string& out, const Person& person) {
  out.append(person.first);
  out.push_back(' ');
  out.append(person.last);
}

}  // namespace

LogGenerator::LogGenerator(uint64_t seed) : rng_(seed) {
  clockMs_ = daysFromCivil(2026, 3, 14) * 86'400'000 + rng_.below(86'400'000);
  for (uint64_t& id : requestIds_) id = rng_.next();
}

void LogGenerator::appendRecord(std::string& out) {
  if (trace_.step == Trace::Step::none)
    appendEntry(out);
  else
    appendTraceLine(out);
}

void LogGenerator::appendEntry(std::string& out) {
  advanceClock();
  uint32_t roll = rng_.below(100'000);
  size_t level = 0;
  while (roll >= kLevelWeights[level]) roll -= kLevelWeights[level++];
  appendMessage(out, static_cast<Level>(level));
  out.push_back('\n');
}

void LogGenerator::appendMessage(std::string& out, Level level) {
  switch (level) {
    case Level::debug:
      if (rng_.chance(4, 1000)) return appendLongPayload(out, level);
      return appendTemplated(out, level);
    case Level::info:
      if (rng_.chance(4, 1000)) return appendLongPayload(out, level);
      if (rng_.chance(45, 100)) return appendAccess(out, level);
      return appendTemplated(out, level);
    case Level::warn:
    case Level::error:
      if (rng_.chance(3, 10)) return appendAccess(out, level);
      return appendTemplated(out, level);
    case Level::fatal: return appendTemplated(out, level);
  }
}

void LogGenerator::appendPrefix(std::string& out, Level level, std::string_view service, Thread thread,
                                std::string_view logger) {
  appendIsoMillis(out, clockMs_);
  out.push_back(' ');
  out.append(kLevelNames[static_cast<size_t>(level)]);
  out.push_back(' ');
  out.append(service);
  out.append(" [");
  switch (thread) {
    case Thread::http:
      out.append("http-nio-8080-exec-");
      appendInt(out, rng_.between(1, 200));
      break;
    case Thread::kafka:
      out.append("kafka-consumer-");
      appendInt(out, rng_.between(0, 7));
      break;
    case Thread::scheduler: out.append("scheduling-1"); break;
    case Thread::worker:
      out.append("pool-3-thread-");
      appendInt(out, rng_.between(1, 16));
      break;
    case Thread::main: out.append("main"); break;
  }
  out.append("] ");
  out.append(logger);
  out.append(": ");
}

void LogGenerator::appendAccess(std::string& out, Level level) {
  int status = 0;
  if (level == Level::warn)
    status = rng_.pick(kClientErrorStatuses);
  else if (level == Level::error)
    status = rng_.pick(kServerErrorStatuses);
  else
    status = rng_.pick(kOkStatuses);
  appendPrefix(out, level, "gateway", Thread::http, "c.a.g.AccessLogFilter");
  out.append("req=");
  appendRequestId(out);
  out.push_back(' ');
  appendIp(out);
  out.append(" \"");
  out.append(rng_.pick(kMethods));
  out.push_back(' ');
  expand(out, rng_.pick(kPaths));
  out.append(" HTTP/1.1\" ");
  appendInt(out, status);
  out.push_back(' ');
  appendInt(out, status == 204 || status == 304 ? 0 : rng_.between(120, 250'000));
  out.push_back(' ');
  if (status >= 500)
    appendInt(out, rng_.between(1'000, 30'000));
  else
    appendLatency(out);
  out.append("ms");
  if (rng_.chance(1, 8)) {
    out.append(" \"");
    out.append(rng_.pick(kUserAgents));
    out.push_back('"');
  }
}

// A response body logged whole: several kilobytes on one line, and now and
// then a few hundred kilobytes: the lines that break naive line handling.
void LogGenerator::appendLongPayload(std::string& out, Level level) {
  appendPrefix(out, level, "orders", Thread::http, "c.a.o.OrderController");
  out.append("req=");
  appendRequestId(out);
  out.append(" Response body: {\"orders\":[");
  const int64_t count = rng_.chance(1, 400) ? rng_.between(800, 2'500) : rng_.between(20, 120);
  for (int64_t i = 0; i < count; ++i) {
    if (i > 0) out.push_back(',');
    expand(out,
           "{\"id\":$id,\"sku\":\"$sku\",\"name\":\"$product\",\"qty\":$n,\"price\":$amount,"
           "\"warehouse\":\"$city\"}");
  }
  out.append("],\"page\":1,\"hasMore\":false}");
}

void LogGenerator::appendTemplated(std::string& out, Level level) {
  const Template* line = nullptr;
  switch (level) {
    case Level::debug: line = &pickWeighted(rng_, kDebug); break;
    case Level::info: line = &pickWeighted(rng_, kInfo); break;
    case Level::warn: line = &pickWeighted(rng_, kWarn); break;
    case Level::error: line = &pickWeighted(rng_, kError); break;
    case Level::fatal: line = &pickWeighted(rng_, kFatal); break;
  }
  appendPrefix(out, level, line->service, line->thread, line->logger);
  expand(out, line->message);
  if (level == Level::fatal || (level == Level::error && rng_.chance(6, 10))) {
    trace_ = {.step = Trace::Step::header,
              .done = 0,
              .appFrames = static_cast<int>(rng_.between(2, 5)),
              .withCause = rng_.chance(1, 2)};
  }
}

// One line of a Java stack trace: the exception, its frames (a few of ours
// over the servlet container's), and sometimes a cause with an elided tail.
void LogGenerator::appendTraceLine(std::string& out) {
  using Step = Trace::Step;
  constexpr int kServletFrameCount = static_cast<int>(std::size(kServletFrames));
  switch (trace_.step) {
    case Step::header: {
      const Exception& e = rng_.pick(kExceptions);
      out.append(e.type);
      out.append(": ");
      expand(out, e.message);
      trace_.step = Step::frames;
      break;
    }
    case Step::frames:
      out.append("\tat ");
      if (trace_.done < trace_.appFrames) {
        out.append(rng_.pick(kAppFrames));
        appendInt(out, rng_.between(40, 900));
        out.push_back(')');
      } else {
        out.append(kServletFrames[trace_.done - trace_.appFrames]);
      }
      if (++trace_.done == trace_.appFrames + kServletFrameCount)
        trace_.step = trace_.withCause ? Step::cause : Step::none;
      break;
    case Step::cause: {
      const Exception& e = rng_.pick(kCauses);
      out.append("Caused by: ");
      out.append(e.type);
      out.append(": ");
      out.append(e.message);
      trace_.step = Step::causeFrames;
      trace_.done = static_cast<int>(rng_.between(2, 4));
      break;
    }
    case Step::causeFrames:
      out.append("\tat ");
      out.append(rng_.pick(kCauseFrames));
      if (--trace_.done == 0) trace_.step = Step::more;
      break;
    case Step::more:
      out.append("\t... ");
      appendInt(out, trace_.appFrames + kServletFrameCount - 1);
      out.append(" more");
      trace_.step = Step::none;
      break;
    case Step::none: break;
  }
  out.push_back('\n');
}

void LogGenerator::advanceClock() {
  const uint32_t roll = rng_.below(1000);
  if (roll < 550)
    clockMs_ += rng_.between(0, 4);
  else if (roll < 850)
    clockMs_ += rng_.between(5, 40);
  else if (roll < 970)
    clockMs_ += rng_.between(41, 400);
  else if (roll < 999)
    clockMs_ += rng_.between(401, 5'000);
  else
    clockMs_ += rng_.between(5'001, 90'000);
}

// Most lines of one request follow each other closely, so a small pool of
// live ids is reused and now and then one request ends and another begins.
void LogGenerator::appendRequestId(std::string& out) {
  const uint32_t slot = rng_.below(static_cast<uint32_t>(requestIds_.size()));
  if (rng_.chance(1, 5)) requestIds_[slot] = rng_.next();
  appendHex(out, requestIds_[slot], 16);
}

void LogGenerator::appendLatency(std::string& out) {
  const uint32_t roll = rng_.below(100);
  if (roll < 60)
    appendInt(out, rng_.between(1, 30));
  else if (roll < 85)
    appendInt(out, rng_.between(31, 150));
  else if (roll < 97)
    appendInt(out, rng_.between(151, 900));
  else
    appendInt(out, rng_.between(901, 8'000));
}

void LogGenerator::appendIp(std::string& out) {
  if (rng_.chance(1, 30)) {
    out.append("2001:db8:");
    appendHex(out, rng_.next(), 4);
    out.append("::");
    appendHex(out, rng_.next(), 3);
    return;
  }
  const uint64_t bits = rng_.next();
  const bool internal = (bits & 3) != 0;
  appendInt(out, internal ? 10 : static_cast<int64_t>(bits >> 8 & 0x7F) + 64);
  for (int shift = 16; shift <= 32; shift += 8) {
    out.push_back('.');
    appendInt(out, static_cast<int64_t>(bits >> shift & 0xFF));
  }
}

void LogGenerator::expand(std::string& out, std::string_view pattern) {
  for (size_t i = 0; i < pattern.size();) {
    const size_t dollar = pattern.find('$', i);
    if (dollar == std::string_view::npos) {
      out.append(pattern.substr(i));
      return;
    }
    out.append(pattern.substr(i, dollar - i));
    size_t end = dollar + 1;
    while (end < pattern.size() && pattern[end] >= 'a' && pattern[end] <= 'z') ++end;
    expandPlaceholder(out, pattern.substr(dollar + 1, end - dollar - 1));
    i = end;
  }
}

void LogGenerator::expandPlaceholder(std::string& out, std::string_view name) {
  const auto append = [&out](std::string_view text) { out.append(text); };
  for (const NumberField& field : kNumberFields) {
    if (field.name != name) continue;
    return appendPadded(out, rng_.between(field.low, field.high), field.width);
  }
  for (const WordField& field : kWordFields) {
    if (field.name == name) return append(rng_.pick(field.words));
  }
  if (name == "ms") return appendLatency(out);
  if (name == "rid") return appendRequestId(out);
  if (name == "ip") return appendIp(out);
  if (name == "uuid") {
    // Two statements: the order in which function arguments are evaluated is unspecified.
    const uint64_t high = rng_.next();
    return appendUuid(out, high, rng_.next());
  }
  if (name == "login") return append(rng_.pick(kPeople).login);
  if (name == "name") return appendFullName(out, rng_.pick(kPeople));
  if (name == "city") return append(rng_.pick(kPlaces).city);
  if (name == "product") return appendJsonEscaped(out, rng_.pick(kProducts));
  if (name == "amount") return appendFixed(out, rng_.between(199, 99'999), 2);
  if (name == "sec") return appendFixed(out, rng_.between(800, 20'000), 3);
  if (name == "hex") return appendHex(out, rng_.next(), 8);
  if (name == "date") return appendIsoMillis(out, clockMs_ - rng_.between(0, 30) * 86'400'000);
  if (name == "ts") return appendIsoMillis(out, clockMs_ - rng_.between(1'000, 3'600'000));
  if (name == "sku") {
    out.append("SKU-");
    return appendPadded(out, rng_.between(0, 999'999), 6);
  }
  out.push_back('$');  // not a placeholder: keep the text
  out.append(name);
}

}  // namespace quorin::gen
