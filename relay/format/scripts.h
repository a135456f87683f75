// SPDX-License-Identifier: MIT
//
// What the publisher has the server execute: each is one step that nothing comes between. All have
// the keys records, changes, about.
#pragma once

namespace Zorbe::Relay {

/// Becomes the publisher. Arguments: format, schema, the least new epoch, bytes of changes that the
/// stream keeps, host, process id, version of the relay, a text that no other publisher has, the
/// epoch that this one had before (empty: none). Returns the new epoch and the id of the last
/// batch. A table of another schema, keys of other types, and a stream whose ids leave no room for
/// higher ones are removed; a stream that is too long is cut to half of that. Where somebody else
/// has added or removed records, no batch is the last one, and mirrors read all records: a
/// comparison does not find one that the table has lost, too. Fails with "FORMAT <format>" when a
/// relay of another version has written the keys, and with "FENCED <epoch>" when another publisher
/// has taken over since this one was the publisher.
inline constexpr const char* kClaimScript = R"lua(
local about, records, changes = KEYS[3], KEYS[1], KEYS[2]
local function keep(key, kind)
  local found = redis.call('TYPE', key)['ok']
  if found ~= kind and found ~= 'none' then redis.call('UNLINK', key) end
end
keep(records, 'hash')
keep(changes, 'stream')
keep(about, 'hash')
local function epochOf(text)
  local number = tonumber(string.match(text or '', '^%d+'))
  return number and number < 2 ^ 52 and number
end
local was = redis.call('HMGET', about, 'format', 'schema', 'epoch', 'last', 'token', 'size')
if was[1] and was[1] ~= ARGV[1] then return redis.error_reply('FORMAT ' .. was[1]) end
local epoch = epochOf(was[3]) or 0
if ARGV[9] ~= '' and epoch > tonumber(ARGV[9]) and was[5] ~= ARGV[8] then
  return redis.error_reply('FENCED ' .. was[3])
end
epoch = math.max(epoch + 1, tonumber(ARGV[3]))
local last = was[4] or ''
if #last > 30 or not string.match(last, '^%d+%-%d+$') then last = '0-0' end
if tonumber(was[6] or '') ~= redis.call('HLEN', records) then last = '0-0' end
if redis.call('EXISTS', changes) == 1 then
  local info = redis.call('XINFO', 'STREAM', changes)
  local newest
  for i = 1, #info, 2 do
    if info[i] == 'last-generated-id' then newest = epochOf(info[i + 1]) end
  end
  if not newest then redis.call('UNLINK', changes) end
  epoch = math.max(epoch, (newest or 0) + 1)
end
if redis.call('EXISTS', changes) == 1 then
  local limit = tonumber(ARGV[4])
  local share = limit / redis.call('MEMORY', 'USAGE', changes)
  if share < 1 then
    local length = redis.call('XLEN', changes)
    redis.call('XTRIM', changes, 'MAXLEN', '~', math.floor(length * share / 2))
  end
end
if was[2] ~= ARGV[2] then
  redis.call('UNLINK', records, changes)
  last = '0-0'
end
epoch = string.format('%.0f', epoch)
redis.call('HSET', about, 'format', ARGV[1], 'schema', ARGV[2], 'epoch', epoch, 'last', last,
           'source', 'lost', 'host', ARGV[5], 'pid', ARGV[6], 'version', ARGV[7],
           'token', ARGV[8], 'size', redis.call('HLEN', records))
return {epoch, last}
)lua";

/// Stores a batch. Arguments: epoch, id of the batch before, id, the oldest id that the stream has
/// to keep (empty: all), how many records are put; then for each record its key and what is stored,
/// and for each that is erased its key and nothing. Fails with "FENCED <epoch>" when there is a
/// newer publisher, and with "LOST ..." when the server does not have the batch before, or when
/// somebody else has added or removed records.
inline constexpr const char* kAppendScript = R"lua(
local about = redis.call('HMGET', KEYS[3], 'epoch', 'last', 'size')
if not about[1] then return redis.error_reply('LOST the batch before') end
if about[1] ~= ARGV[1] then return redis.error_reply('FENCED ' .. about[1]) end
if about[2] ~= ARGV[2] then return redis.error_reply('LOST the batch before') end
if tonumber(about[3] or '') ~= redis.call('HLEN', KEYS[1]) then
  return redis.error_reply('LOST records')
end
redis.call('XADD', KEYS[2], ARGV[3], '', ARGV[2], unpack(ARGV, 6))
local puts = tonumber(ARGV[5])
if puts > 0 then redis.call('HSET', KEYS[1], unpack(ARGV, 6, 5 + 2 * puts)) end
local erased = {}
for i = 6 + 2 * puts, #ARGV, 2 do erased[#erased + 1] = ARGV[i] end
if #erased > 0 then redis.call('HDEL', KEYS[1], unpack(erased)) end
if ARGV[4] ~= '' then redis.call('XTRIM', KEYS[2], 'MINID', '~', ARGV[4]) end
redis.call('HSET', KEYS[3], 'last', ARGV[3], 'size', redis.call('HLEN', KEYS[1]))
return redis.status_reply('OK')
)lua";

/// Says that the publisher is there, at which time of the server's clock, in milliseconds: of all
/// who ask how long ago that was, none needs a clock that agrees with the publisher's. Arguments:
/// epoch, "live" or "lost": whether the table has a writer, and the last batch with which the
/// records are those of the table (empty: not known yet). Fails as the one above.
inline constexpr const char* kHeartbeatScript = R"lua(
local about = redis.call('HMGET', KEYS[3], 'epoch', 'last', 'size')
if not about[1] then return redis.error_reply('LOST the batch before') end
if about[1] ~= ARGV[1] then return redis.error_reply('FENCED ' .. about[1]) end
if tonumber(about[3] or '') ~= redis.call('HLEN', KEYS[1]) then
  return redis.error_reply('LOST records')
end
local now = redis.call('TIME')
if ARGV[3] == about[2] then redis.call('HSET', KEYS[3], 'compared', ARGV[1]) end
redis.call('HSET', KEYS[3], 'heartbeat', string.format('%.0f', now[1] * 1000 + now[2] / 1000),
           'source', ARGV[2])
return redis.status_reply('OK')
)lua";

}  // namespace Zorbe::Relay
