-- The clock of the zone is that of a process of its own.
if arg[1] == nil then
    os.exit(os.execute("TZ=Europe/Berlin lua5.4 " .. arg[0] .. " again"))
end
local summer, date, sub, text = 0, os.date, string.sub, ""
for i = 0, 999999 do
    text = date("%Y-%m-%d %H:%M:%S%z", 1600000000 + i * 61)
    if sub(text, -5) == "+0200" then
        summer = summer + 1
    end
end
print(summer .. " " .. text)
