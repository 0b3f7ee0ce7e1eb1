#!/usr/bin/python3
"""Decides on the page PAGE, as a person would, what pkcs11-tool asks for with the module MODULE and
the key ID, and leaves a picture of the page in the file PICTURE.
usage: phone.py PAGE MODULE ID [PICTURE]"""

import http.client
import shutil
import subprocess
import sys
from urllib.parse import urlsplit

from selenium import webdriver
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.wait import WebDriverWait

page, module, identifier, *picture = sys.argv[1:]
address = urlsplit(page)


def start_signing(output):
    return subprocess.Popen(
        ["pkcs11-tool", "--module", module, "--sign", "--id", identifier, "--mechanism", "RSA-PKCS",
         "--input-file", "contract.digest-info", "--output-file", output])


def is_signed(output):
    return subprocess.run(["openssl", "dgst", "-sha256", "-verify", "maria.pub", "-signature",
                           output, "contract.txt"]).returncode == 0


def card(number):
    path = f"//article[h2[.='Request {number}, pkcs11-tool']]"
    return WebDriverWait(browser, 20).until(lambda _: browser.find_element(By.XPATH, path))


def decide(number, decision):
    button = card(number).find_element(By.CLASS_NAME, decision)
    button.send_keys(Keys.SPACE) if number % 2 == 0 else button.click()


def wait_for(text):
    WebDriverWait(browser, 20).until(
        lambda _: text in browser.find_element(By.TAG_NAME, "main").text)


# Returns the status, having looked that no other site is let in.
def answer(method, path, host=address.netloc):
    connection = http.client.HTTPConnection(address.hostname, address.port)
    connection.request(method, path, headers={"Host": host, "Origin": "http://elsewhere.invalid"})
    response = connection.getresponse()
    assert not [name for name, _ in response.getheaders() if name.lower().startswith("access-")]
    return response.status


options = webdriver.ChromeOptions()
for option in ("headless=new", "no-sandbox", "disable-dev-shm-usage"):
    options.add_argument("--" + option)
options.add_experimental_option("mobileEmulation", {
    "deviceMetrics": {"width": 390, "height": 670, "pixelRatio": 1}})
# Or else it looks for both in the network.
options.binary_location = shutil.which("chromium")
browser = webdriver.Chrome(options=options, service=Service(shutil.which("chromedriver")))
try:
    browser.get(page)
    wait_for("Nothing waits for you.")

    first = start_signing("first.sig")
    shown = card(1).text
    for text in ("Maria Exemplo (1001)", str(first.pid), "PKCS#1 v1.5", "51 bytes",
                 "30 31 30 0d 06 09 60 86 48 01 65 03 04 02 01 05 00 04 20", " s\n"):
        assert text in shown, (text, shown)
    wait_for("Request 1, pkcs11-tool: waits for you.")
    assert answer("GET", address.path + "1/approve") == 404
    assert answer("POST", address.path[:-2] + "x/1/approve") == 404
    assert answer("POST", address.path + "1/approve", "elsewhere.invalid") == 403
    assert answer("POST", address.path + "77/approve") == 409
    decide(1, "approve")
    assert first.wait() == 0 and is_signed("first.sig")
    assert answer("POST", address.path + "1/refuse") == 409

    second = start_signing("second.sig")
    decide(2, "refuse")
    second.wait()
    assert not is_signed("second.sig")

    third = start_signing("third.sig")
    card(3)
    if picture:
        browser.save_screenshot(picture[0])
    fourth = start_signing("fourth.sig")
    card(4)
    assert browser.execute_script("return document.body.scrollWidth <= innerWidth")
    decide(4, "approve")
    assert fourth.wait() == 0 and is_signed("fourth.sig") and third.poll() is None
    fifth = start_signing("fifth.sig")
    card(5)
    refuse = card(3).find_element(By.CLASS_NAME, "refuse")
    ActionChains(browser).double_click(refuse).pause(0.2).click().perform()
    third.wait()
    assert not is_signed("third.sig")
    decide(5, "approve")
    assert fifth.wait() == 0 and is_signed("fifth.sig")
    wait_for("Request 3, pkcs11-tool, Maria Exemplo (1001): refused")
finally:
    browser.quit()
