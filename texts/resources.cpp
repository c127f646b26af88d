#include "texts/resources.h"

#include <atomic>
#include <cstddef>
#include <iterator>
#include <map>

#include "compat/text.h"

namespace {

// One (key, text) pair of a language as written in the source; texts are UTF-8.
struct ResourceText {
  const char* key;
  const char* text;
};

// clang-format off
// Russian.
constexpr ResourceText kRussian[] = {
    {"IDS_WIZARD_BACK", "< Назад"},
    {"IDS_WIZARD_NEXT", "Далее >"},
    {"IDS_WIZARD_FINISH", "Готово"},
    {"IDS_WIZARD_CANCEL", "Отмена"},
    {"IDS_ACCEPT_CANCEL", "Вы действительно хотите отменить установку?"},
    {"IDS_TITLE_INSTALLER", "Установка конфигурации"},
    {"IDS_PREPARECOPY", "Подготовка к копированию..."},
    {"IDS_INSTALL_ERROR", "Ошибка при инсталляции"},
    {"IDS_ERROR_NOSOURCE", "Файл комплекта установки plom8.tpk не найден."},
    {"IDS_ERROR_NOTARGET", "Установка в текущий каталог шаблонов не поддерживается."},
    {"IDS_ERROR_NOSPACE", "Недостаточно места в каталоге Temp."},
    {"IDS_CHOOSEDIR_FOLDER", "&Папка:"},
    {"IDS_CHOOSEDIR_TITLE", "Выбор каталога"},
    {"IDR_MAINFRAME", "Установка конфигурации"},
    {"IDS_SETUP_EMPTYTARGET", "Укажите корректный путь к каталогу шаблонов."},
    {"IDS_INSTALL_FINISH", "Завершение копирования..."},
    {"IDS_ERROR_DAMAGEDSOURCE", "Файл комплекта установки plom8.tpk поврежден или не предназначен для этой программы установки."},
    {"IDS_DEFPRODUCT", "<Продукт>"},
    {"IDS_DEFPROVIDER", "<Поставщик>"},
    {"IDS_SUCCESS_FINISH", "Конфигурация успешно установлена."},
    {"IDS_SUCCESS_OPENDESCR", "Открыть описание поставки"},
    {"IDS_PROGRESS_START", "Идет копирование файлов..."},
    {"IDS_ERROR_FINISH", "В процессе установки произошла ошибка. Установка прервана. Каталог шаблонов не изменен."},
    {"IDS_CANCEL_FINISH", "Установка отменена. Каталог шаблонов не изменен."},
    {"IDS_BROWSE_SELDIR", "Выбранный каталог:"},
    {"IDS_BROWSE_OK", "Выбрать"},
    {"IDS_BROWSE_CANCEL", "Отмена"},
    {"IDS_WELCOME_TITLE", "Добро пожаловать в программу установки продукта"},
    {"IDS_SETUP_EXISTEDTARGET", "Каталог установки содержит файлы, которые могут быть изменены в процессе установки. Продолжить установку?"},
    {"IDS_DESTINATION_PROMPT", "Укажите путь к каталогу шаблонов. Программа установки установит шаблоны и файлы конфигурации в указанный каталог."},
    {"IDS_TEMPLATE_CATALOG", "Каталог шаблонов:"},
};

// Ukrainian.
constexpr ResourceText kUkrainian[] = {
    {"IDS_WIZARD_BACK", "< Попередня"},
    {"IDS_WIZARD_NEXT", "Наступна >"},
    {"IDS_WIZARD_FINISH", "ОК"},
    {"IDS_WIZARD_CANCEL", "Відмінити"},
    {"IDS_ACCEPT_CANCEL", "Ви дійсно хочете відмінити установку?"},
    {"IDS_TITLE_INSTALLER", "Установка конфігурації"},
    {"IDS_PREPARECOPY", "Підготовка до копіювання..."},
    {"IDS_INSTALL_ERROR", "Помилка при інсталяції"},
    {"IDS_ERROR_NOSOURCE", "Файл комплекту поставки plom8.tpk не знайдений."},
    {"IDS_ERROR_NOTARGET", "Установка у поточний каталог шаблонів не підтримується."},
    {"IDS_ERROR_NOSPACE", "Недостатньо місця в каталозі Temp."},
    {"IDS_CHOOSEDIR_FOLDER", "&Папка:"},
    {"IDS_CHOOSEDIR_TITLE", "Вибір каталогу"},
    {"IDR_MAINFRAME", "Установка конфігурації"},
    {"IDS_SETUP_EMPTYTARGET", "Вкажіть коректний шлях до каталогу шаблонів."},
    {"IDS_INSTALL_FINISH", "Завершення копіювання..."},
    {"IDS_ERROR_DAMAGEDSOURCE", "Файл комплекту поставки plom8.tpk пошкоджений або не призначений для цієї програми установки."},
    {"IDS_DEFPRODUCT", "<Продукт>"},
    {"IDS_DEFPROVIDER", "<Постачальник>"},
    {"IDS_SUCCESS_FINISH", "Конфігурацію успішно встановлено."},
    {"IDS_SUCCESS_OPENDESCR", "Відкрити опис поставки"},
    {"IDS_PROGRESS_START", "Іде копіювання файлів..."},
    {"IDS_ERROR_FINISH", "У процесі установки відбулася помилка. Установку перервано. Каталог шаблонів не змінено."},
    {"IDS_CANCEL_FINISH", "Установку відмінено. Каталог шаблонів не змінено."},
    {"IDS_BROWSE_SELDIR", "Вибраний каталог:"},
    {"IDS_BROWSE_OK", "Вибрати"},
    {"IDS_BROWSE_CANCEL", "Відмінити"},
    {"IDS_WELCOME_TITLE", "Ласкаво просимо у програму установки продукту"},
    {"IDS_SETUP_EXISTEDTARGET", "Каталог установки містить файли, які можуть бути змінені у процесі установки. Продовжити установку?"},
    {"IDS_DESTINATION_PROMPT", "Вкажіть шлях до каталогу шаблонів. Програма установки встановить шаблони і файли конфігурації у вказаний каталог."},
    {"IDS_TEMPLATE_CATALOG", "Каталог шаблонів:"},
};

// English.
constexpr ResourceText kEnglish[] = {
    {"IDS_WIZARD_BACK", "< Back"},
    {"IDS_WIZARD_NEXT", "Next >"},
    {"IDS_WIZARD_FINISH", "Finish"},
    {"IDS_WIZARD_CANCEL", "Cancel"},
    {"IDS_ACCEPT_CANCEL", "Do you really want to cancel installation?"},
    {"IDS_TITLE_INSTALLER", "Installing configuration"},
    {"IDS_PREPARECOPY", "Preparing to copy..."},
    {"IDS_INSTALL_ERROR", "Installation error"},
    {"IDS_ERROR_NOSOURCE", "Distribution kit file plom8.tpk not found."},
    {"IDS_ERROR_NOTARGET", "Installation of templates to the current directory is not supported."},
    {"IDS_ERROR_NOSPACE", "Insufficient space available in the directory Temp."},
    {"IDS_CHOOSEDIR_FOLDER", "&Folder:"},
    {"IDS_CHOOSEDIR_TITLE", "Choose Directory"},
    {"IDR_MAINFRAME", "Installing configuration"},
    {"IDS_SETUP_EMPTYTARGET", "Specify correct path to template directory."},
    {"IDS_INSTALL_FINISH", "Copying complete..."},
    {"IDS_ERROR_DAMAGEDSOURCE", "Distribution kit file plom8.tpk corrupted or not designed for this installation program."},
    {"IDS_DEFPRODUCT", "<Product>"},
    {"IDS_DEFPROVIDER", "<Vendor>"},
    {"IDS_SUCCESS_FINISH", "Configuration installed successfully."},
    {"IDS_SUCCESS_OPENDESCR", "Open description of distribution package"},
    {"IDS_PROGRESS_START", "Files being copied..."},
    {"IDS_ERROR_FINISH", "An error occurred during the installation process. Installation canceled. Template directory has not been changed."},
    {"IDS_CANCEL_FINISH", "Installation canceled. Template directory has not been changed."},
    {"IDS_BROWSE_SELDIR", "Directory selected:"},
    {"IDS_BROWSE_OK", "Select"},
    {"IDS_BROWSE_CANCEL", "Cancel"},
    {"IDS_WELCOME_TITLE", "Welcome to the product installation program"},
    {"IDS_SETUP_EXISTEDTARGET", "The installation directory contains files that may be changed during the installation process. Do you want to continue?"},
    {"IDS_DESTINATION_PROMPT", "Specify path to template directory. The installation program will install templates and configuration files to the specified directory."},
    {"IDS_TEMPLATE_CATALOG", "Template directory:"},
};

// Latvian.
constexpr ResourceText kLatvian[] = {
    {"IDS_WIZARD_BACK", "< Atpakaļ"},
    {"IDS_WIZARD_NEXT", "Tālāk >"},
    {"IDS_WIZARD_FINISH", "Gatavs"},
    {"IDS_WIZARD_CANCEL", "Atcelt"},
    {"IDS_ACCEPT_CANCEL", "Jūs tiešām vēlaties atcelt instalāciju?"},
    {"IDS_TITLE_INSTALLER", "Konfigurācijas uzstādīšana"},
    {"IDS_PREPARECOPY", "Gatvošanās kopēšanai..."},
    {"IDS_INSTALL_ERROR", "Kļūda instalējot"},
    {"IDS_ERROR_NOSOURCE", "Nav atrasts instalēšanas komplekta fails plom8.tpk."},
    {"IDS_ERROR_NOTARGET", "Šablonu uzstādīšana pašreizējā katalogā netiek atbalstīta."},
    {"IDS_ERROR_NOSPACE", "Nepietiek vietas katalogā Temp."},
    {"IDS_CHOOSEDIR_FOLDER", "&Mape:"},
    {"IDS_CHOOSEDIR_TITLE", "Kataloga izvēlne"},
    {"IDR_MAINFRAME", "Konfigurācijas uzstādīšana"},
    {"IDS_SETUP_EMPTYTARGET", "Norādiet korektu ceļu uz šablonu katalogu."},
    {"IDS_INSTALL_FINISH", "Kopēšanas beigas..."},
    {"IDS_ERROR_DAMAGEDSOURCE", "Instalēšanas komplekta fails plom8.tpk bojāts vai nav paredzēts šai instalācijas programmai."},
    {"IDS_DEFPRODUCT", "<Produkts>"},
    {"IDS_DEFPROVIDER", "<Piegādātājs>"},
    {"IDS_SUCCESS_FINISH", "Konfigurācija veiksmīgi uzstādīta."},
    {"IDS_SUCCESS_OPENDESCR", "Atvērt piegādes aprakstu"},
    {"IDS_PROGRESS_START", "Notiek failu kopēšana..."},
    {"IDS_ERROR_FINISH", "Instalācijas procesā notikusi kļūda. Instalācija pārtraukta. Šablonu katalogs nav mainīts."},
    {"IDS_CANCEL_FINISH", "Instalācija atcelta. Šablonu katalogs nav mainīts."},
    {"IDS_BROWSE_SELDIR", "Izvēlētais katalogs"},
    {"IDS_BROWSE_OK", "Izvēlēties"},
    {"IDS_BROWSE_CANCEL", "Atcelt"},
    {"IDS_WELCOME_TITLE", "Laipni lūdzam produkta instalācijas programmā"},
    {"IDS_SETUP_EXISTEDTARGET", "Instalācijas katalogs satur failus, kuri var būt mainīti instalācijas procesā. Turpināt instalāciju?"},
    {"IDS_DESTINATION_PROMPT", "Norādiet ceļu uz šablonu katalogu. Instalācijas programma ievietos šablonus un failu konfigurācijas norādītajā katalogā."},
    {"IDS_TEMPLATE_CATALOG", "Šablonu katalogs:"},
};

// Lithuanian.
constexpr ResourceText kLithuanian[] = {
    {"IDS_WIZARD_BACK", "< Atgal"},
    {"IDS_WIZARD_NEXT", "Toliau >"},
    {"IDS_WIZARD_FINISH", "Atlikta"},
    {"IDS_WIZARD_CANCEL", "Atsisakyti"},
    {"IDS_ACCEPT_CANCEL", "Ar tikrai norite atsisakyti diegimo?"},
    {"IDS_TITLE_INSTALLER", "Konfigūracijos diegimas"},
    {"IDS_PREPARECOPY", "Pasiruošimas kopijuoti..."},
    {"IDS_INSTALL_ERROR", "Diegimo klaida"},
    {"IDS_ERROR_NOSOURCE", "Nerastas diegimo komplekto failas plom8.tpk."},
    {"IDS_ERROR_NOTARGET", "Diegimas į esamą šablonų katalogą nevykdomas."},
    {"IDS_ERROR_NOSPACE", "Nepakanka vietos Temp kataloge."},
    {"IDS_CHOOSEDIR_FOLDER", "&Katalogas:"},
    {"IDS_CHOOSEDIR_TITLE", "Katalogo pasirinkimas"},
    {"IDR_MAINFRAME", "Konfigūracijos diegimas"},
    {"IDS_SETUP_EMPTYTARGET", "Nurodykite teisingą šablonų katalogo kelią."},
    {"IDS_INSTALL_FINISH", "Kopijavimo pabaiga..."},
    {"IDS_ERROR_DAMAGEDSOURCE", "Diegimo komplekto failas plom8.tpk sugadintas arba netinka šiai diegimo programai."},
    {"IDS_DEFPRODUCT", "<Produktas>"},
    {"IDS_DEFPROVIDER", "<Tiekėjas>"},
    {"IDS_SUCCESS_FINISH", "Konfigūracija sėkmingai įdiegta."},
    {"IDS_SUCCESS_OPENDESCR", "Atidaryti diegimo komplekto aprašymą"},
    {"IDS_PROGRESS_START", "Kopijuojami failai..."},
    {"IDS_ERROR_FINISH", "Diegimo procese įvyko klaida. Diegimas nutrauktas. Šablonų katalogas nepakeistas."},
    {"IDS_CANCEL_FINISH", "Diegimo atšauktas. Šablonų katalogas nepakeistas."},
    {"IDS_BROWSE_SELDIR", "Pasirinktas katalogas:"},
    {"IDS_BROWSE_OK", "Pasirinkti"},
    {"IDS_BROWSE_CANCEL", "Atsisakyti"},
    {"IDS_WELCOME_TITLE", "Sveiki atvykę į diegimo programą"},
    {"IDS_SETUP_EXISTEDTARGET", "Diegimo kataloge yra failų, kurie diegimo metu gali būti pakeisti. Tęsti diegimą?"},
    {"IDS_DESTINATION_PROMPT", "Nurodykite šablonų katalogo kelią. Diegimo programa įkels konfigūracijos šablonus ir failus į nurodytą katalogą."},
    {"IDS_TEMPLATE_CATALOG", "Šablonų katalogas:"},
};

// Bulgarian.
constexpr ResourceText kBulgarian[] = {
    {"IDS_WIZARD_BACK", "< Назад"},
    {"IDS_WIZARD_NEXT", "Напред >"},
    {"IDS_WIZARD_FINISH", "Готово"},
    {"IDS_WIZARD_CANCEL", "Отказ"},
    {"IDS_ACCEPT_CANCEL", "Дейстително ли желаете да отмените инсталацията?"},
    {"IDS_TITLE_INSTALLER", "Инсталиране на конфигурация"},
    {"IDS_PREPARECOPY", "Подготовка за копиране..."},
    {"IDS_INSTALL_ERROR", "Грешка при инсталацията"},
    {"IDS_ERROR_NOSOURCE", "Файлът за инсталация plom8.tpk не е открит."},
    {"IDS_ERROR_NOTARGET", "Инсталирането в текущата директория с шаблони не се поддържа."},
    {"IDS_ERROR_NOSPACE", "Недостатъчно места в директория Temp."},
    {"IDS_CHOOSEDIR_FOLDER", "&Папка:"},
    {"IDS_CHOOSEDIR_TITLE", "Избор на директория"},
    {"IDR_MAINFRAME", "Инсталиране на конфигурация"},
    {"IDS_SETUP_EMPTYTARGET", "Задайте коректния път към каталога със шаблоните."},
    {"IDS_INSTALL_FINISH", "Завършване на копирането..."},
    {"IDS_ERROR_DAMAGEDSOURCE", "Файлът с инсталацията plom8.tpk е повреден или не е предназначен за тази програма."},
    {"IDS_DEFPRODUCT", "<Продукт>"},
    {"IDS_DEFPROVIDER", "<Доставчик>"},
    {"IDS_SUCCESS_FINISH", "Конфигурацията е успешно инсталирана."},
    {"IDS_SUCCESS_OPENDESCR", "Отвори описанието на дистрибутива"},
    {"IDS_PROGRESS_START", "Копиране на файлове..."},
    {"IDS_ERROR_FINISH", "В процеса на инсталация е станала грешка. Инсталацията е прекъсната. Каталогът с шаблоните не е променен."},
    {"IDS_CANCEL_FINISH", "Инсталацията е отменена. Каталогът с шаблоните не е променен."},
    {"IDS_BROWSE_SELDIR", "Избраната директория:"},
    {"IDS_BROWSE_OK", "Избери"},
    {"IDS_BROWSE_CANCEL", "Отказ"},
    {"IDS_WELCOME_TITLE", "Добре долшли в инсталационната програма на продукта"},
    {"IDS_SETUP_EXISTEDTARGET", "Директорията с инсталацията съдържа файлове, които могат да бъдат променени в процеса на инсталацията. Ще продължите ли с инсталацията?"},
    {"IDS_DESTINATION_PROMPT", "Задайте път към каталога с шаблоните. Инсталационната програма задава шаблони и файлове на конфигурации в указания каталог."},
    {"IDS_TEMPLATE_CATALOG", "Каталог със шаблони:"},
};

// German.
constexpr ResourceText kGerman[] = {
    {"IDS_WIZARD_BACK", "< Zurück"},
    {"IDS_WIZARD_NEXT", "Weiter >"},
    {"IDS_WIZARD_FINISH", "Fertig"},
    {"IDS_WIZARD_CANCEL", "Abbrechen"},
    {"IDS_ACCEPT_CANCEL", "Soll die Installation wirklich abgebrochen werden?"},
    {"IDS_TITLE_INSTALLER", "Konfiguration wird installiert"},
    {"IDS_PREPARECOPY", "Kopieren wird vorbereitet..."},
    {"IDS_INSTALL_ERROR", "Installationsfehler"},
    {"IDS_ERROR_NOSOURCE", "Installationsdatei plom8.tpk wurde nicht gefunden."},
    {"IDS_ERROR_NOTARGET", "Installation von Vorlagen in das aktuelle Verzeichnis wird nicht unterstützt."},
    {"IDS_ERROR_NOSPACE", "Nicht genügend Speicherplatz im Verzeichnis Temp."},
    {"IDS_CHOOSEDIR_FOLDER", "&Ordner:"},
    {"IDS_CHOOSEDIR_TITLE", "Verzeichnis auswählen"},
    {"IDR_MAINFRAME", "Konfiguration wird installiert"},
    {"IDS_SETUP_EMPTYTARGET", "Geben Sie den richtigen Pfad zum Vorlagenverzeichnis an."},
    {"IDS_INSTALL_FINISH", "Kopieren fertig gestellt..."},
    {"IDS_ERROR_DAMAGEDSOURCE", "Die Installationsdatei plom8.tpk ist beschädigt oder für dieses Installationsprogramm nicht vorgesehen."},
    {"IDS_DEFPRODUCT", "<Produkt>"},
    {"IDS_DEFPROVIDER", "<Lieferant>"},
    {"IDS_SUCCESS_FINISH", "Konfiguration erfolgreich installiert."},
    {"IDS_SUCCESS_OPENDESCR", "Beschreibung des Verteilungskits öffnen"},
    {"IDS_PROGRESS_START", "Dateien werden kopiert..."},
    {"IDS_ERROR_FINISH", "Während der Installation ist ein Fehler aufgetreten. Installation beendet. Vorlagenverzeichnis wurde nicht geändert."},
    {"IDS_CANCEL_FINISH", "Installation abgebrochen. Vorlagenverzeichnis wurde nicht geändert."},
    {"IDS_BROWSE_SELDIR", "Verzeichnis ausgewählt:"},
    {"IDS_BROWSE_OK", "Auswählen"},
    {"IDS_BROWSE_CANCEL", "Abbrechen"},
    {"IDS_WELCOME_TITLE", "Willkommen beim Installationsprogramm des Produkts"},
    {"IDS_SETUP_EXISTEDTARGET", "Das Installationsverzeichnis enthält Dateien, die während des Installationsprozesses möglicherweise geändert werden. Möchten Sie fortfahren?"},
    {"IDS_DESTINATION_PROMPT", "Geben Sie den Pfad zum Vorlagenverzeichnis an. Das Installationsprogramm installiert Vorlagen und Konfigurationsdateien in das angegebene Verzeichnis."},
    {"IDS_TEMPLATE_CATALOG", "Vorlagenverzeichnis:"},
};

// Romanian.
constexpr ResourceText kRomanian[] = {
    {"IDS_WIZARD_BACK", "< Înapoi"},
    {"IDS_WIZARD_NEXT", "Înainte >"},
    {"IDS_WIZARD_FINISH", "Finalizare"},
    {"IDS_WIZARD_CANCEL", "Revocare"},
    {"IDS_ACCEPT_CANCEL", "Doriţi să anulaţi instalarea?"},
    {"IDS_TITLE_INSTALLER", "Instalarea configuraţiei"},
    {"IDS_PREPARECOPY", "Pregătire pentru copiere..."},
    {"IDS_INSTALL_ERROR", "Eroare la instalare"},
    {"IDS_ERROR_NOSOURCE", "Fişierul kit-ului de instalare plom8.tpk nu a fost găsit."},
    {"IDS_ERROR_NOTARGET", "Instalarea în catalogul de şabloane curent nu este posibilă."},
    {"IDS_ERROR_NOSPACE", "Spațiu insuficient în folderul Temp."},
    {"IDS_CHOOSEDIR_FOLDER", "&Mapă:"},
    {"IDS_CHOOSEDIR_TITLE", "Selectarea catalogului"},
    {"IDR_MAINFRAME", "Instalarea configuraţiei"},
    {"IDS_SETUP_EMPTYTARGET", "Indicaţi calea către catalogul de şabloane."},
    {"IDS_INSTALL_FINISH", "Finalizarea copierii..."},
    {"IDS_ERROR_DAMAGEDSOURCE", "Fişierul kit-ului de instalare plom8.tpk este defect sau nu este destinat acestui program de instalare."},
    {"IDS_DEFPRODUCT", "<Produs>"},
    {"IDS_DEFPROVIDER", "<Furnizor>"},
    {"IDS_SUCCESS_FINISH", "Configuraţia a fost instalată cu succes."},
    {"IDS_SUCCESS_OPENDESCR", "Deschiderea descrierii distribuţiei"},
    {"IDS_PROGRESS_START", "Se execută copierea fişierelor..."},
    {"IDS_ERROR_FINISH", "Eroare în timpul procesului de instalare. Instalarea a fost întreruptă. Catalogul de şabloane nu a fost modificat."},
    {"IDS_CANCEL_FINISH", "Procesul de instalare a fost anulat. Catalogul de şabloane nu a fost modificat."},
    {"IDS_BROWSE_SELDIR", "Catalogul selectat:"},
    {"IDS_BROWSE_OK", "Selectare"},
    {"IDS_BROWSE_CANCEL", "Revocare"},
    {"IDS_WELCOME_TITLE", "Bine aţi venit în programul de instalare a produsului"},
    {"IDS_SETUP_EXISTEDTARGET", "Catalogul de instalare poate conţine fişiere, care pot fi modificate în procesul instalării. Doriţi să continuaţi instalarea?"},
    {"IDS_DESTINATION_PROMPT", "Indicaţi calea către catalogul de şabloane. Programul va instala şabloanele şi fişierele configuraţiei în catalogul indicat."},
    {"IDS_TEMPLATE_CATALOG", "Catalogul şabloanelor:"},
};

// Georgian.
constexpr ResourceText kGeorgian[] = {
    {"IDS_WIZARD_BACK", "< უკან"},
    {"IDS_WIZARD_NEXT", "შემდეგ>"},
    {"IDS_WIZARD_FINISH", "მზადაა"},
    {"IDS_WIZARD_CANCEL", "გაუქმება"},
    {"IDS_ACCEPT_CANCEL", "ნამდვილად გსურთ აწყობის გაუქმება?"},
    {"IDS_TITLE_INSTALLER", "კონფიგურაციის დაყენება"},
    {"IDS_PREPARECOPY", "მომზადება კოპირებისათვის..."},
    {"IDS_INSTALL_ERROR", "შეცდომა ინსტალაციისას"},
    {"IDS_ERROR_NOSOURCE", "მიწოდების კომპლექტის ფაილი plom8.tpk არ არის ნაპოვნი."},
    {"IDS_ERROR_NOTARGET", "შაბლონების მიმდინარე კატალოგში დაყენება არ არის მხარდაჭერილი."},
    {"IDS_ERROR_NOSPACE", "კატალოგში Temp ადგილი არასაკმარისია."},
    {"IDS_CHOOSEDIR_FOLDER", "&საქაღალდე:"},
    {"IDS_CHOOSEDIR_TITLE", "კატალოგის არჩევა"},
    {"IDR_MAINFRAME", "კონფიგურაციის დაყენება"},
    {"IDS_SETUP_EMPTYTARGET", "მიუთითეთ კორექტული გზა შაბლონების კატალოგისკენ."},
    {"IDS_INSTALL_FINISH", "კოპირების დასრულება..."},
    {"IDS_ERROR_DAMAGEDSOURCE", "მიწოდების კომპლექტის ფაილი plom8.tpk დაზიანებულია ან არ არის განკუთვნილი მიწოდების ამ პროგრამისათვის."},
    {"IDS_DEFPRODUCT", "<პროდუქტი>"},
    {"IDS_DEFPROVIDER", "<მომწოდებელი>"},
    {"IDS_SUCCESS_FINISH", "კონფიგურაცია წარმატებითაა დაყენებული."},
    {"IDS_SUCCESS_OPENDESCR", "მიწოდების აღწერის გახსნა"},
    {"IDS_PROGRESS_START", "მიდის ფაილების კოპირება..."},
    {"IDS_ERROR_FINISH", "დაყენების პროცესში მოხდა შეცდომა. დაყენება შეწყდა. შაბლონების კატალოგი არ შეცვლილა."},
    {"IDS_CANCEL_FINISH", "დაყენება გაუქმებულია. შაბლონების კატალოგი არ შეცვლილა."},
    {"IDS_BROWSE_SELDIR", "არჩეული კატალოგი:"},
    {"IDS_BROWSE_OK", "არჩევა"},
    {"IDS_BROWSE_CANCEL", "გაუქმება"},
    {"IDS_WELCOME_TITLE", "კეთილი იყოს თქვენი მობრძანება პროდუქტის დაყენების პროგრამაში"},
    {"IDS_SETUP_EXISTEDTARGET", "დაყენების კატალოგი შეიცავს ფაილებს, რომლებიც შესაძლოა შეიცვალოს დაყენების პროცესში. გაგრძელდეს დაყენება?"},
    {"IDS_DESTINATION_PROMPT", "მიუთითეთ გზა შაბლონების კატალოგისკენ. დაყენების პროგრამა დააყენებს კონფიგურაციის შაბლონებსა და ფაილებს  მითითებულ კატალოგში."},
    {"IDS_TEMPLATE_CATALOG", "შაბლონების კატალოგი:"},
};

// Kazakh.
constexpr ResourceText kKazakh[] = {
    {"IDS_WIZARD_BACK", "< Артқа"},
    {"IDS_WIZARD_NEXT", "Әрі қарай >"},
    {"IDS_WIZARD_FINISH", "Дайын"},
    {"IDS_WIZARD_CANCEL", "Доғар"},
    {"IDS_ACCEPT_CANCEL", "Сіз орнатуды шынымен алып тастағыңыз келе ме?"},
    {"IDS_TITLE_INSTALLER", "Конфигурацияны орнату"},
    {"IDS_PREPARECOPY", "Көшіруге дайындық..."},
    {"IDS_INSTALL_ERROR", "Инсталляциялау кезіндегі қате"},
    {"IDS_ERROR_NOSOURCE", " plom8.tpk орнату файлы жинағы табылған жоқ."},
    {"IDS_ERROR_NOTARGET", "Үлгінің ағымдағы каталогына орнату қолдау таппады."},
    {"IDS_ERROR_NOSPACE", "Temp тізбегінде орын жеткіліксіз."},
    {"IDS_CHOOSEDIR_FOLDER", "&Папка:"},
    {"IDS_CHOOSEDIR_TITLE", "Каталогты таңдау"},
    {"IDR_MAINFRAME", "Конфигурацияны орнату"},
    {"IDS_SETUP_EMPTYTARGET", "Үлгілер каталогына дұрыс жолды көрсетіңіз."},
    {"IDS_INSTALL_FINISH", "Көшіруді аяқтау..."},
    {"IDS_ERROR_DAMAGEDSOURCE", " plom8.tpk орнату файлы бүлінген немесе орнатудың осы программасы арналмаған."},
    {"IDS_DEFPRODUCT", "<Өнім>"},
    {"IDS_DEFPROVIDER", "<Жабдықтаушы>"},
    {"IDS_SUCCESS_FINISH", "Конфигурация сәтті орнатылды."},
    {"IDS_SUCCESS_OPENDESCR", "Жабдықтау баяндамасын ашу"},
    {"IDS_PROGRESS_START", "Файлдарды көшіру жүріп жатыр..."},
    {"IDS_ERROR_FINISH", "Орнату кезінде қате кетті. Орнату үзілді. Үлгілер каталогы өзгеріссіз қалды."},
    {"IDS_CANCEL_FINISH", "Орнату алынып тасталды.Үлгілер каталогы өзгермеген."},
    {"IDS_BROWSE_SELDIR", "Таңдалған каталог:"},
    {"IDS_BROWSE_OK", "Таңдау"},
    {"IDS_BROWSE_CANCEL", "Доғар"},
    {"IDS_WELCOME_TITLE", "Өнімді орнату программасына қош келдіңіз"},
    {"IDS_SETUP_EXISTEDTARGET", "Орнату каталогы орнату процесінде өзгеруі мүмкін файлдарды қамтиды. Орнатуды жалғастыру керек пе?"},
    {"IDS_DESTINATION_PROMPT", "Үлгілер каталогына жолды көрсетіңіз..Орнату программасы көрсетілген каталогқа конфигурация үлгісі мен файлдарын орнатады."},
    {"IDS_TEMPLATE_CATALOG", "Үлгілер каталогы:"},
};

// Vietnamese.
constexpr ResourceText kVietnamese[] = {
    {"IDS_WIZARD_BACK", "< Quay lại"},
    {"IDS_WIZARD_NEXT", "Tiếp theo >"},
    {"IDS_WIZARD_FINISH", "Đồng ý"},
    {"IDS_WIZARD_CANCEL", "Hủy bỏ"},
    {"IDS_ACCEPT_CANCEL", "Bạn có thực sự muốn huỷ bỏ việc cài đặt?"},
    {"IDS_TITLE_INSTALLER", "Cài đặt cấu hình"},
    {"IDS_PREPARECOPY", "Chuẩn bị để sao chép..."},
    {"IDS_INSTALL_ERROR", "Lỗi khi cài đặt"},
    {"IDS_ERROR_NOSOURCE", "Không tìm thấy tệp của bộ cài đặt plom8.tpk."},
    {"IDS_ERROR_NOTARGET", "Không hỗ trợ việc cài đặt vào thư mục khuôn mẫu hiện tại."},
    {"IDS_ERROR_NOSPACE", "Không đủ chỗ trong thư mục Temp."},
    {"IDS_CHOOSEDIR_FOLDER", "&Thư mục:"},
    {"IDS_CHOOSEDIR_TITLE", "Chọn thư mục"},
    {"IDR_MAINFRAME", "Cài đặt cấu hình"},
    {"IDS_SETUP_EMPTYTARGET", "Hãy chỉ ra đường dẫn chính xác đến thư mục các khuôn mẫu."},
    {"IDS_INSTALL_FINISH", "Kết thúc việc sao chép..."},
    {"IDS_ERROR_DAMAGEDSOURCE", "Tệp của bộ cài đặt plom8.tpk bị hỏng hoặc được dành để cho chương trình cài đặt này."},
    {"IDS_DEFPRODUCT", "<Sản phẩm>"},
    {"IDS_DEFPROVIDER", "<Nhà cung cấp>"},
    {"IDS_SUCCESS_FINISH", "Cấu hình đã được cài đặt thành công."},
    {"IDS_SUCCESS_OPENDESCR", "Mở bản mô tả bộ cài đặt chính"},
    {"IDS_PROGRESS_START", "Đang tiến hành sao chép các tệp..."},
    {"IDS_ERROR_FINISH", "Xảy ra lỗi trong quá trình cài đặt. Việc cài đặt đã bị ngừng lại. Thư mục các khuôn mẫu không thay đổi."},
    {"IDS_CANCEL_FINISH", "Hủy bỏ việc cài đặt. Thư mục khuôn mẫu không thay đổi."},
    {"IDS_BROWSE_SELDIR", "Thư mục được chọn:"},
    {"IDS_BROWSE_OK", "Chọn"},
    {"IDS_BROWSE_CANCEL", "Hủy bỏ"},
    {"IDS_WELCOME_TITLE", "Chào mừng Bạn đến với chương trình cài đặt sản phẩm"},
    {"IDS_SETUP_EXISTEDTARGET", "Thư mục cài đặt có chứa các tệp mà có thể bị thay đổi trong quá trình cài đặt. Tiếp tục việc cài đặt?"},
    {"IDS_DESTINATION_PROMPT", "Hãy chỉ ra đường dẫn tới thư mục các khuôn mẫu. Chương trình cài đặt sẽ đặt các khuôn mẫu và tệp cấu hình vào thư mục được chỉ ra."},
    {"IDS_TEMPLATE_CATALOG", "Thư mục các khuôn mẫu:"},
};

// Turkish.
constexpr ResourceText kTurkish[] = {
    {"IDS_WIZARD_BACK", "< Geri"},
    {"IDS_WIZARD_NEXT", "İleri >"},
    {"IDS_WIZARD_FINISH", "Tamam"},
    {"IDS_WIZARD_CANCEL", "İptal"},
    {"IDS_ACCEPT_CANCEL", "Yüklemeyi iptal etmek istediğinizden emin misiniz?"},
    {"IDS_TITLE_INSTALLER", "Konfigürasyon yüklenmesi"},
    {"IDS_PREPARECOPY", "Kopyalamak için hazırlık..."},
    {"IDS_INSTALL_ERROR", "Yükleme sırasında hata oluştu"},
    {"IDS_ERROR_NOSOURCE", "plom8.tpk yükleme takımının dosyası bulunmadı."},
    {"IDS_ERROR_NOTARGET", "Cari şablon klasörüne yükleme desteklenmiyor."},
    {"IDS_ERROR_NOSPACE", "Temp klasöründa HD yeri yeterince değil."},
    {"IDS_CHOOSEDIR_FOLDER", "&Klasör:"},
    {"IDS_CHOOSEDIR_TITLE", "Kunum seç"},
    {"IDR_MAINFRAME", "Konfigürasyon yüklenmesi"},
    {"IDS_SETUP_EMPTYTARGET", "Şablon klasörüne geçerli yolu belirleyin."},
    {"IDS_INSTALL_FINISH", "Kopyalama sonlandırılması..."},
    {"IDS_ERROR_DAMAGEDSOURCE", "plom8.tpk yükleme takımının dosyası bozuk veya bu yükleme programı için uygun değil."},
    {"IDS_DEFPRODUCT", "<Ürün>"},
    {"IDS_DEFPROVIDER", "<Tedarikçi>"},
    {"IDS_SUCCESS_FINISH", "Konfigürasyon başarılı yüklendi."},
    {"IDS_SUCCESS_OPENDESCR", "Dağıtım açıklamasını aç"},
    {"IDS_PROGRESS_START", "Dosya kopyalaması gerçekleşiyor..."},
    {"IDS_ERROR_FINISH", "Yükleme sırasında hata oluştu. Yükleme kesildi. Şablon klasörü değiştirilmedi."},
    {"IDS_CANCEL_FINISH", "Yükleme iptal edildi. Şablonu klasörü değiştirilmedi."},
    {"IDS_BROWSE_SELDIR", "Seçilen klasör:"},
    {"IDS_BROWSE_OK", "Seç"},
    {"IDS_BROWSE_CANCEL", "İptal"},
    {"IDS_WELCOME_TITLE", "Ürün yükleme programına hoş geldiniz"},
    {"IDS_SETUP_EXISTEDTARGET", "Yükleme klasörü yükleme sırasında değiştirilebilecek dosyalar içeriyor. Yüklemeyi devam etmek ister misiniz?"},
    {"IDS_DESTINATION_PROMPT", "Şablon klasörüne yolu belirtin. Yükleme programı şablonları ve konfigürasyon dosyalarını belirtilen klasöre yükleyecek."},
    {"IDS_TEMPLATE_CATALOG", "Şablon klasörü:"},
};

// clang-format on

// A language as written in the source: its id, its code and its texts.
struct LanguageSource {
  LangIdType id;
  const char* code;
  const ResourceText* texts;
  std::size_t count;
};

constexpr LanguageSource kLanguages[] = {
    {kLangRu, "ru", kRussian, std::size(kRussian)},
    {kLangUk, "uk", kUkrainian, std::size(kUkrainian)},
    {kLangEn, "en", kEnglish, std::size(kEnglish)},
    {kLangLv, "lv", kLatvian, std::size(kLatvian)},
    {kLangLt, "lt", kLithuanian, std::size(kLithuanian)},
    {kLangBg, "bg", kBulgarian, std::size(kBulgarian)},
    {kLangDe, "de", kGerman, std::size(kGerman)},
    {kLangRo, "ro", kRomanian, std::size(kRomanian)},
    {kLangKa, "ka", kGeorgian, std::size(kGeorgian)},
    {kLangKk, "kk", kKazakh, std::size(kKazakh)},
    {kLangVi, "vi", kVietnamese, std::size(kVietnamese)},
    {kLangTr, "tr", kTurkish, std::size(kTurkish)},
};

// Keys ordered byte-wise (std::string compares its chars as unsigned bytes).
using StringTable = std::map<std::string, std::string>;

struct LanguageRecord {
  std::string code;
  StringTable strings;
};

// Languages ordered by ascending id.
using Registry = std::map<LangIdType, LanguageRecord>;

Registry build_registry() {
  Registry registry;
  for (const LanguageSource& language : kLanguages) {
    LanguageRecord& record = registry[language.id];
    record.code = language.code;
    for (std::size_t i = 0; i < language.count; ++i) {
      record.strings.emplace(language.texts[i].key, language.texts[i].text);
    }
  }
  return registry;
}

// Built on first use (the initialisation is thread-safe), read-only afterwards.
const Registry& registry() {
  static const Registry kRegistry = build_registry();
  return kRegistry;
}

// Written once at start-up, read by the interface and the worker thread.
std::atomic<LangIdType> g_currentLang{kLangEn};

}  // namespace

LangIdType get_lang_id_by_lang_code(const std::string& code) {
  // A walk in id order: the first language with exactly this code wins.
  for (const auto& [id, record] : registry()) {
    if (record.code == code) return id;
  }
  return kLangNone;
}

std::vector<std::string> get_lang_codes() {
  std::vector<std::string> codes;
  for (const auto& [id, record] : registry()) codes.push_back(record.code);
  return codes;
}

std::vector<std::string> resource_keys(LangIdType id) {
  std::vector<std::string> keys;
  for (const LanguageSource& language : kLanguages)
    if (language.id == id)
      for (std::size_t i = 0; i < language.count; ++i) keys.push_back(language.texts[i].key);
  return keys;
}

void set_resource_lang(LangIdType id) { g_currentLang.store(id, std::memory_order_relaxed); }

std::u16string LoadResString(const std::string& key) {
  const Registry& languages = registry();
  auto language = languages.find(g_currentLang.load(std::memory_order_relaxed));
  if (language == languages.end()) return std::u16string();
  const StringTable& strings = language->second.strings;
  auto text = strings.find(key);
  if (text == strings.end()) return std::u16string();
  return widen_lib(text->second);
}
