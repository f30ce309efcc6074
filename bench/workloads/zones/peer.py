from datetime import datetime
from zoneinfo import ZoneInfo


def main():
    summer, text, zone = 0, "", ZoneInfo("Europe/Berlin")
    for i in range(1000000):
        text = datetime.fromtimestamp(1600000000 + i * 61, zone).isoformat(" ")
        if text.endswith("+02:00"):
            summer += 1
    print(summer, text[:-3] + text[-2:])


main()
